#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qx::tool {

/// 1234567 as 1,234,567.
std::string Grouped(std::uint64_t number);

/// "1 record", "1,234 records".
std::string Counted(std::uint64_t count, const std::string& thing);

/// With one decimal: 79.7.
std::string OneDecimal(double number);

/// A line of a report: the label, filled up with spaces, and the value.
std::string Row(std::string_view label, const std::string& value);

}  // namespace qx::tool
