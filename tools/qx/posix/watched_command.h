#pragma once

#include <string>
#include <vector>

namespace qx::tool {

/// Runs a program, looked up as the shell does, and waits for its end. Returns what the shell would: its exit status,
/// 128 and the signal that ended it, 127 when there is no such program, 126 when it cannot be started.
///
/// Signals that ask this process to end go to the program instead, which decides how and when; an interrupt of the
/// terminal reaches it anyway.
int RunWatched(const std::vector<std::string>& command);

}  // namespace qx::tool
