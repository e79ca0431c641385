#include "stats/counter_runs.h"

namespace qx {

void WriteCounts(ReportWriter& report, const CounterValues& counts, std::initializer_list<CounterRun> runs) {
    for (const CounterRun run : runs) {
        for (const CounterLabel& entry : run) {
            report.Name(entry.Label);
            report.Number(counts[entry.Value]);
        }
    }
}

void WriteErrors(ReportWriter& report, const CounterValues& counts, std::initializer_list<CounterRun> runs) {
    for (const CounterRun run : runs) {
        for (const CounterLabel& entry : run) {
            report.Name(entry.Label);
            report.NumberOrEmpty(counts[entry.Value]);
        }
    }
}

}  // namespace qx
