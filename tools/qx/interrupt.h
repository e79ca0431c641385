#pragma once

namespace qx::tool {

/// Thrown by what an interrupt breaks off.
class Interrupted {};

/// From now on the first SIGINT or SIGTERM is a request to stop rather than the end of the process; a second one ends
/// it. A read that waits for input is broken off.
void WatchForInterrupt();

bool InterruptRequested() noexcept;

}  // namespace qx::tool
