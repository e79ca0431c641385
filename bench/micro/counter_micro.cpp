// Counting what one read of a record counts, by threads that work on a file each or on the same one. Against
// ReadOneRecord this is what counting costs.
#include <benchmark/benchmark.h>

#include "runtime/counters.h"

namespace qx {

namespace {

struct alignas(64) Sets {
    CounterSet File;
    CounterSet Handle;
};

Sets theSets[2];

void CountARead(Sets& sets) {
    const CounterLevels levels{.File = &sets.File, .Handle = &sets.Handle};
    levels.Handle->Increment(Counter::ReadRecords);
    levels.CountWork(Counter::GroupLocks);
    levels.CountWork(Counter::ReadFrames);
    levels.CountWork(Counter::GroupUnlocks);
}

void CountReadOnOwnFile(benchmark::State& state) {
    for (auto _ : state) {
        CountARead(theSets[state.thread_index()]);
    }
}
BENCHMARK(CountReadOnOwnFile)->ThreadRange(1, 2);

void CountReadOnOneHandle(benchmark::State& state) {
    for (auto _ : state) {
        CountARead(theSets[0]);
    }
}
BENCHMARK(CountReadOnOneHandle)->ThreadRange(1, 2);

}  // namespace

}  // namespace qx
