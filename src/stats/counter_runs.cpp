#include "stats/counter_runs.h"

namespace qx {

void WriteCounts(ReportWriter& report, const CounterSet& counters, std::initializer_list<CounterRun> runs) {
    for (const CounterRun run : runs) {
        for (const CounterLabel& entry : run) {
            report.Name(entry.Label);
            report.Number(counters.Value(entry.Value));
        }
    }
}

void WriteErrors(ReportWriter& report, const CounterSet& counters, std::initializer_list<CounterRun> runs) {
    for (const CounterRun run : runs) {
        for (const CounterLabel& entry : run) {
            report.Name(entry.Label);
            report.NumberOrEmpty(counters.Value(entry.Value));
        }
    }
}

}  // namespace qx
