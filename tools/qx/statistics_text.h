#pragma once

#include <cstdint>
#include <qx.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace qx::tool {

using StatisticsReport = std::vector<StatisticsEntry>;

/// What the process has counted up to now, whether the library is started or not.
StatisticsReport ProcessStatistics();

/// The value of the first entry with this label. Throws when there is none, or when it is no number.
std::uint64_t NumberOf(const StatisticsReport& report, std::string_view label);

/// An entry a line, labels and values in two columns; the rows of a table stand below it.
std::string StatisticsTable(const StatisticsReport& report);

/// One object. Lists are arrays, tables arrays of objects; an empty value is null.
std::string StatisticsJson(const StatisticsReport& report);

}  // namespace qx::tool
