#pragma once

#include <functional>
#include <string>

#include "command.h"
#include "progress_line.h"

namespace qx::tool {

/// Runs `body` and tells what breaks it off, in a line that takes the place of the progress. `where` says what a failed
/// call was about.
ExitStatus RunJob(ProgressLine& progress, const std::function<std::string()>& where, const std::function<void()>& body);

}  // namespace qx::tool
