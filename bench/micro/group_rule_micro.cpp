// What a key costs before its group can be asked for.
#include <benchmark/benchmark.h>
#include <cstdint>
#include <string>

#include "records/group_rule.h"

namespace qx {

namespace {

void HashKeyOf(benchmark::State& state) {
    std::string key(static_cast<size_t>(state.range(0)), 'k');
    for (auto _ : state) {
        benchmark::DoNotOptimize(key.data());
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(HashKey(key));
    }
}
BENCHMARK(HashKeyOf)->Arg(8)->Arg(15)->Arg(64);

void GroupOfHash(benchmark::State& state) {
    const auto modulo = static_cast<uint32_t>(state.range(0));
    uint32_t hash = 1;
    for (auto _ : state) {
        hash = hash * 1664525 + 1013904223;  // other branches each time, as with other keys
        benchmark::DoNotOptimize(GroupOf(hash, modulo));
    }
}
BENCHMARK(GroupOfHash)->Arg(1)->Arg(101)->Arg(12'345)->Arg(1'234'567);

}  // namespace

}  // namespace qx
