#include "stats/reports.h"

namespace qx {

void WriteServersReport(ReportWriter& report) {
    report.List("Server Names", [] {});
}

}  // namespace qx
