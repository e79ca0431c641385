#pragma once

#include <string_view>

namespace qx::tool {

enum class Stream { Input = 0, Output = 1, Error = 2 };

bool IsTerminal(Stream stream);

/// Asks on the terminal and waits for the answer; true for y or yes.
bool Confirm(std::string_view question);

}  // namespace qx::tool
