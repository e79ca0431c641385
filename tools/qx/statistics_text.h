#pragma once

#include <qx.hpp>
#include <string>
#include <vector>

namespace qx::tool {

using StatisticsReport = std::vector<StatisticsEntry>;

/// What the process has counted up to now, whether the library is started or not.
StatisticsReport ProcessStatistics();

/// The value of the first entry with this label; "" when there is none.
std::string ValueOf(const StatisticsReport& report, std::string_view label);

/// An entry a line, labels and values in two columns; the rows of a table stand below it.
std::string StatisticsTable(const StatisticsReport& report);

/// One object. Lists are arrays, tables arrays of objects; an empty value is null.
std::string StatisticsJson(const StatisticsReport& report);

}  // namespace qx::tool
