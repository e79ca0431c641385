#include "runtime/session_record.h"
#include "stats/counter_runs.h"
#include "stats/handle_numbers.h"
#include "stats/report_field.h"
#include "stats/reports.h"

namespace qx {

namespace {

constexpr ReportField<SessionRecord> kSession[] = {
    {"Maximum Record Size",
     [](ReportWriter& report, SessionRecord& session) { report.Number(session.MaximumRecordSize); }},
    {"Servers", [](ReportWriter& report, SessionRecord&) { report.Nested([] {}); }},
    {"Session Files",
     [](ReportWriter& report, SessionRecord& session) {
         WriteHandleNumbers<&FileHandle::SessionLinks>(report, session.Files);
     }},
};

void WriteLocks(ReportWriter& report, SessionRecord&) {
    report.Table("File Locks", {"Volume Name", "File Name", "Exclusive"}, [] {});
    report.Table("Record Locks", {"Volume Name", "File Name", "Key Id", "Exclusive"}, [] {});
}

}  // namespace

void WriteSessionReport(ReportWriter& report, SessionRecord& session) {
    WriteFields(report, session, kSession);
    WriteLocks(report, session);
    WriteCounts(report, session.Counters, {kSessionCalls, kNameCalls, kHandleCalls, kLiveSessionFiles});
    WriteErrors(report, session.Counters, {kRefusals});
}

}  // namespace qx
