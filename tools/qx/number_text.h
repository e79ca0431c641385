#pragma once

#include <cstdint>
#include <string>

namespace qx::tool {

/// 1234567 as 1,234,567.
std::string Grouped(std::uint64_t number);

/// "1 record", "1,234 records".
std::string Counted(std::uint64_t count, const std::string& thing);

/// With one decimal: 79.7.
std::string OneDecimal(double number);

}  // namespace qx::tool
