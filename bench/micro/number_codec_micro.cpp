// The numbers that begin every record.
#include <array>
#include <benchmark/benchmark.h>
#include <cstdint>

#include "storage/layout/variable_number.h"

namespace qx {

namespace {

void EncodeOneNumber(benchmark::State& state) {
    auto value = static_cast<uint32_t>(state.range(0));
    std::array<uint8_t, kLongestNumber> bytes;
    for (auto _ : state) {
        benchmark::DoNotOptimize(value);
        benchmark::DoNotOptimize(EncodeNumber(value, bytes.data()));
        benchmark::DoNotOptimize(bytes);
    }
}
BENCHMARK(EncodeOneNumber)->Arg(15)->Arg(115)->Arg(1000)->Arg(100'000);

void DecodeOneNumber(benchmark::State& state) {
    std::array<uint8_t, kLongestNumber> bytes;
    EncodeNumber(static_cast<uint32_t>(state.range(0)), bytes.data());
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes);
        NumberDecoder number;
        for (const uint8_t* at = bytes.data(); !number.Take(*at); ++at) {
        }
        benchmark::DoNotOptimize(number.Value());
    }
}
BENCHMARK(DecodeOneNumber)->Arg(15)->Arg(115)->Arg(1000)->Arg(100'000);

}  // namespace

}  // namespace qx
