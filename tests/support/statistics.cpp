#include "support/statistics.h"

#include <algorithm>

#include "support/test_library.h"

namespace qx_test {

namespace {

// The bytes between the topmost marks, of which there has to be one at the end.
std::vector<std::string> Entries(std::string bytes) {
    std::replace(bytes.begin(), bytes.end(), '\xFD', '|');
    std::replace(bytes.begin(), bytes.end(), '\xFC', ',');
    std::vector<std::string> entries;
    size_t begin = 0;
    for (size_t end = bytes.find('\xFE'); end != std::string::npos; end = bytes.find('\xFE', begin)) {
        entries.push_back(bytes.substr(begin, end - begin));
        begin = end + 1;
    }
    EXPECT_EQ(begin, bytes.size()) << "behind the last mark";
    return entries;
}

}  // namespace

Status GetStatistics(uint32_t session, uint32_t kind, std::string_view path, uint32_t subject) {
    Buffer(kReportPath) = path;
    return Called([&](StatusRecord* status) {
        return QXGetStatistics(session, kind, kReportPath, subject, 0, kReportNames, kReportValues, status);
    });
}

Report LastReport() {
    const std::vector<std::string> names = Entries(Buffer(kReportNames));
    const std::vector<std::string> values = Entries(Buffer(kReportValues));
    EXPECT_EQ(names.size(), values.size());
    Report report;
    for (size_t i = 0; i < std::min(names.size(), values.size()); ++i) {
        report.emplace_back(names[i], values[i]);
    }
    return report;
}

Report ReportOn(uint32_t session, uint32_t kind, std::string_view path, uint32_t subject) {
    EXPECT_EQ(GetStatistics(session, kind, path, subject), kNothing) << "kind " << kind;
    return LastReport();
}

std::string ValueIn(const Report& report, std::string_view label) {
    const auto found =
        std::find_if(report.rbegin(), report.rend(), [&](const auto& entry) { return entry.first == label; });
    EXPECT_NE(found, report.rend()) << "no such label: " << label;
    return found == report.rend() ? "" : found->second;
}

}  // namespace qx_test
