#include "remote/remote_connection.h"
#include "stats/name_list.h"
#include "stats/reports.h"

namespace qx {

void WriteServersReport(ReportWriter& report) {
    WriteNameList(report, "Server Names", Connections());
}

}  // namespace qx
