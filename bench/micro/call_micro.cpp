// What every call on a file costs besides its work: the gates of library, session and file, the counters, and the way
// through the C++ face and the callback.
#include <benchmark/benchmark.h>
#include <string>

#include "api/entry.h"
#include "record_file.h"

namespace qx {

namespace {

constexpr uint32_t kFrameSize = 1024;

void EnterAndLeave(benchmark::State& state) {
    RecordFile file(kFrameSize);
    for (auto _ : state) {
        const FileEntry entry(file.Face().Handle());
        benchmark::DoNotOptimize(&entry.Handle);
    }
}
BENCHMARK(EnterAndLeave);

// The shortest call that takes a key: no frame is read.
void AskForGroupNumber(benchmark::State& state) {
    RecordFile file(kFrameSize);
    for (auto _ : state) {
        benchmark::DoNotOptimize(file.Face().GroupNumber("123456789012345"));
    }
}
BENCHMARK(AskForGroupNumber);

void ReadOneRecord(benchmark::State& state) {
    RecordFile file(kFrameSize);
    file.Face().Write("123456789012345", std::string(100, '.'));
    std::string into;
    for (auto _ : state) {
        benchmark::DoNotOptimize(file.Face().Read("123456789012345", into));
    }
}
BENCHMARK(ReadOneRecord);

}  // namespace

}  // namespace qx
