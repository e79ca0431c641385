// Closing a session, for QXCloseSession and QXTerminate.
#pragma once

#include <cstdint>

namespace qx {

// Closes the session's files and then the session, whatever fails; the first failure is raised in the end. Under the
// API mutex, or with no call inside the library; no call is inside the session.
void CloseSession(uint32_t handle);

}  // namespace qx
