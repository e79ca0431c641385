// Whether the files of the running tests are with a server.
#pragma once

namespace qx_test {

inline bool filesAreRemote = false;

}  // namespace qx_test
