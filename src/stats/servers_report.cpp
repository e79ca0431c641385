#include "remote/remote_connection.h"
#include "stats/name_list.h"
#include "stats/reports.h"

namespace qx {

void WriteServersReport(ReportWriter& report) {
    report.Name("Server Names");
    WriteNameList(report, Connections());
}

}  // namespace qx
