#include "storage/operation_context.h"

#include "storage/frame_io.h"

namespace qx {

OperationContext::OperationContext(OpenFile& file, const CounterLevels& levels, Counter shortage)
    : File(file),
      Levels(levels),
      area_(size_t{kBufferCount} * file.FrameSize, shortage),
      overflow_(file),
      HeaderLock(file, levels),
      GroupLock(file, levels),
      AllocationLock(file, levels),
      Input(*this, Buffer(0)),
      Output(*this, Buffer(1), Buffer(2)),
      List(*this, Buffer(3)) {}

uint32_t OperationContext::OverflowFrames() {
    uint32_t held = 0;
    if (!OsGetSize(HandleOf(WhichFile::Overflow), File.FrameSize, &held)) {
        Levels.CountWork(Counter::ReadErrors);
        Raise(Code::ReadFailed, Number(WhichFile::Overflow), Input.Group + 1);
    }
    File.OverflowFramesSeen.store(held, std::memory_order_relaxed);
    return held;
}

bool OperationContext::OverflowHolds(uint64_t frames) {
    return frames <= File.OverflowFramesSeen.load(std::memory_order_relaxed) || frames <= OverflowFrames();
}

}  // namespace qx
