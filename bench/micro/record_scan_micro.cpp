// Looking through a frame for a record, without reading the frame.
#include <benchmark/benchmark.h>
#include <string>

#include "api/entry.h"
#include "record_file.h"
#include "storage/operation_context.h"

namespace qx {

namespace {

// A frame as full as it gets with keys of 15 bytes and data of 100; none of the keys is the one looked for.
void ScanFullFrame(benchmark::State& state) {
    const auto frameSize = static_cast<uint32_t>(state.range(0));
    constexpr uint32_t kRecordBytes = 118;  // with the numbers and the terminator
    RecordFile file(frameSize);
    const uint32_t records = (frameSize - 40) / kRecordBytes;
    for (uint32_t record = 0; record < records; ++record) {
        file.Face().Write(std::to_string(100'000'000'000'000 + record), std::string(100, '.'));
    }
    FileEntry entry(file.Face().Handle());
    FileCall call(entry.Session, file.Face().Handle(), entry.Handle);
    const PrimaryAttachment attachment(*call.File);
    OperationContext context(*call.File, call.Levels);
    InputCursor& input = context.Input;
    input.ReadPrimaryFrame(ShortRead::Fail);
    const FramePlace start = input.Place;
    for (auto _ : state) {
        input.Place = start;
        while (!input.AtEndOfGroup()) {
            input.ReadRecordHeader();
            benchmark::DoNotOptimize(input.MatchKey("999999999999999"));
            input.SkipRecordData();
        }
    }
    state.SetItemsProcessed(state.iterations() * records);
}
BENCHMARK(ScanFullFrame)->ArgName("frame")->Arg(1024)->Arg(4096);

}  // namespace

}  // namespace qx
