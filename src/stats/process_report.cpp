#include "remote/remote_call_library.h"
#include "stats/counter_runs.h"
#include "stats/name_list.h"
#include "stats/reports.h"
#include "volume/volume_record.h"

namespace qx {

void WriteProcessReport(ReportWriter& report) {
    report.Bytes("QX API Version", "1.1.1.0");
    report.Bytes("QX API Prior Version", "1.1.0");
    report.Bytes("QX TBX Protocol Version", "3.0.0");
    report.Bytes("QX TBX Protocol Prior Version", "3.0.0");
    report.Number("Multiple Threads", 1);
    report.Number("Multiple Processes", 1);
    report.Number("Full Statistics", 1);
    report.Number("Select Cache", 0);
    report.Number("Client Enabled", 1);
    report.Number("TBX Active", theRemoteCalls.IsActive());
    const VolumeSettings unset;
    report.Number("Fill Character", unset.FillCharacter);
    report.Number("Group Lock Timeout", unset.GroupLockTimeout);
    WriteNameList(report, "Volume Names", Volumes());
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
