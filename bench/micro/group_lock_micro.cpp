// A group lock that nobody else wants, and those of two threads on different groups.
#include <benchmark/benchmark.h>
#include <cstdint>

#include "locking/group_lock_queue.h"

namespace qx {

namespace {

GroupLockQueue theQueue;

void LockAndUnlockGroup(benchmark::State& state) {
    const CounterLevels uncounted;
    GroupLockRequest request;
    const auto group = static_cast<uint32_t>(state.thread_index()) + 1;
    for (auto _ : state) {
        theQueue.Lock(request, group, state.range(0) != 0, uncounted);
        theQueue.Unlock(request, uncounted);
    }
}
BENCHMARK(LockAndUnlockGroup)->ArgName("exclusive")->Arg(0)->Arg(1)->ThreadRange(1, 2);

}  // namespace

}  // namespace qx
