#include "stats/counter_runs.h"

namespace qx {

namespace {

template <class WriteCount>
void WriteRuns(ReportWriter& report, std::initializer_list<CounterRun> runs, WriteCount&& writeCount) {
    for (const CounterRun run : runs) {
        for (const CounterLabel& entry : run) {
            report.Name(entry.Label);
            writeCount(entry.Value);
        }
    }
}

}  // namespace

void WriteCounts(ReportWriter& report, const CounterValues& counts, std::initializer_list<CounterRun> runs) {
    WriteRuns(report, runs, [&](Counter counter) { report.Number(counts[counter]); });
}

void WriteErrors(ReportWriter& report, const CounterValues& counts, std::initializer_list<CounterRun> runs) {
    WriteRuns(report, runs, [&](Counter counter) { report.NumberOrEmpty(counts[counter]); });
}

}  // namespace qx
