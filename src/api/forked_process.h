// What becomes of the library in a process that is forked off.
#pragma once

namespace qx {

// From the first call on, a forked process begins with a library that is not started: it shares nothing with its
// parent, which goes on as before. False when the system does not let the library know of forks.
bool WatchForks();

}  // namespace qx
