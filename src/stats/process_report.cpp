#include "remote/remote_call_library.h"
#include "runtime/library_record.h"
#include "stats/counter_runs.h"
#include "stats/name_list.h"
#include "stats/report_field.h"
#include "stats/reports.h"
#include "volume/volume_record.h"

namespace qx {

namespace {

constexpr ReportField<const LibraryRecord> kSettings[] = {
    {"QX API Version", [](ReportWriter& report, const LibraryRecord&) { report.Bytes("1.1.1.0"); }},
    {"QX API Prior Version", [](ReportWriter& report, const LibraryRecord&) { report.Bytes("1.1.0"); }},
    {"QX TBX Protocol Version", [](ReportWriter& report, const LibraryRecord&) { report.Bytes("3.0.0"); }},
    {"QX TBX Protocol Prior Version", [](ReportWriter& report, const LibraryRecord&) { report.Bytes("3.0.0"); }},
    {"Multiple Threads", [](ReportWriter& report, const LibraryRecord&) { report.Number(1); }},
    {"Multiple Processes", [](ReportWriter& report, const LibraryRecord&) { report.Number(1); }},
    {"Full Statistics", [](ReportWriter& report, const LibraryRecord&) { report.Number(1); }},
    {"Select Cache", [](ReportWriter& report, const LibraryRecord&) { report.Number(0); }},
    {"Client Enabled", [](ReportWriter& report, const LibraryRecord&) { report.Number(1); }},
    {"TBX Active", [](ReportWriter& report, const LibraryRecord&) { report.Number(theRemoteCalls.IsActive()); }},
    {"Fill Character",
     [](ReportWriter& report, const LibraryRecord& library) { report.Number(library.FillCharacter); }},
    {"Group Lock Timeout",
     [](ReportWriter& report, const LibraryRecord& library) { report.Number(library.GroupLockTimeout); }},
    {"Volume Names", [](ReportWriter& report, const LibraryRecord&) { WriteNameList(report, Volumes()); }},
};

}  // namespace

void WriteProcessReport(ReportWriter& report) {
    WriteFields<const LibraryRecord>(report, theLibrary, kSettings);
    const CounterValues counts = theProcessCounters.Values();
    WriteCounts(report, counts,
                {kLiveSystemFiles, kLibraryCalls, kSessionCalls, kNameCalls, kHandleCalls, kLiveSessions, kLiveVolumes,
                 kLiveFiles, kLiveSessionFiles, kWork});
    WriteErrors(report, counts, {kRefusals, kFileErrors, kMemoryErrors, kGroupLockErrors});
    if (theRemoteCalls.IsActive()) {
        report.AppendRemoteCalls();
    }
}

}  // namespace qx
