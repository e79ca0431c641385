// Counting, which several threads do to the same counters.
#include <benchmark/benchmark.h>

#include "runtime/counters.h"

namespace qx {

namespace {

CounterSet theSets[4];

const CounterLevels kLevels = {&theSets[0], &theSets[1], &theSets[2], &theSets[3]};

void CountCall(benchmark::State& state) {
    for (auto _ : state) {
        kLevels.CountCall(Counter::ReadRecords);
    }
}
BENCHMARK(CountCall)->ThreadRange(1, 2);

void CountWork(benchmark::State& state) {
    for (auto _ : state) {
        kLevels.CountWork(Counter::ReadFrames);
    }
}
BENCHMARK(CountWork)->ThreadRange(1, 2);

}  // namespace

}  // namespace qx
