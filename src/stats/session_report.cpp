#include "remote/remote_session.h"
#include "stats/counter_runs.h"
#include "stats/handle_numbers.h"
#include "stats/report_field.h"
#include "stats/reports.h"

namespace qx {

namespace {

void WriteServers(ReportWriter& report, SessionRecord& session) {
    report.Nested([&] {
        for (const RemoteSession* remote = session.RemoteSessions; remote != nullptr; remote = remote->NextOfSession) {
            report.Bytes(remote->Connection.Name);
        }
    });
}

constexpr ReportField<SessionRecord> kSession[] = {
    {"Maximum Record Size",
     [](ReportWriter& report, SessionRecord& session) { report.Number(session.MaximumRecordSize); }},
    {"Servers", WriteServers},
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
    const CounterValues counts = session.Counters.Values();
    WriteCounts(report, counts, {kSessionCalls, kNameCalls, kHandleCalls, kLiveSessionFiles});
    WriteErrors(report, counts, {kRefusals});
}

}  // namespace qx
