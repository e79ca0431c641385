// Reports of QXGetStatistics in a form that can be compared and read.
#pragma once

#include <cstdint>
#include <new>
#include <qx.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/counters.h"
#include "support/raised.h"

namespace qx_test {

// The process's counters begin with the test that has this as its first base.
struct FreshProcessCounters {
    FreshProcessCounters() { new (&qx::theProcessCounters) qx::CounterSet; }
};

enum ReportKind : uint32_t {
    kProcessReport = 1,
    kVolumeReport = 2,
    kFileReport = 3,
    kSessionReport = 4,
    kHandleReport = 5,
    kServersReport = 6,
};

// Buffer objects for what goes in and comes out.
inline constexpr uint32_t kReportPath = 5;
inline constexpr uint32_t kReportNames = 6;
inline constexpr uint32_t kReportValues = 7;

// What the exported function says.
Status GetStatistics(uint32_t session, uint32_t kind, std::string_view path = "", uint32_t subject = 0);

// Labels and values in their order, with a bar for the mark of a nested list and a comma for the one below.
using Report = std::vector<std::pair<std::string, std::string>>;

// The last report that was written.
Report LastReport();

// A report that has to succeed.
Report ReportOn(uint32_t session, uint32_t kind, std::string_view path = "", uint32_t subject = 0);

// The value of the last entry with this label; a missing one fails the test.
std::string ValueIn(const Report& report, std::string_view label);

}  // namespace qx_test
