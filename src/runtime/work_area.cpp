#include "runtime/work_area.h"

#include "platform/platform.h"
#include "runtime/status.h"

namespace qx {

namespace {

// Larger blocks are rare enough to be worth an allocation, and too large to be kept by every thread.
constexpr size_t kLargestKept = size_t{4} << 20;

struct KeptBlock {
    uint8_t* Bytes = nullptr;
    size_t Size = 0;
    bool InUse = false;

    ~KeptBlock() { Drop(); }

    void Drop() {
        if (Bytes != nullptr) {
            thePlatform.Memory->FreeBuffer(Bytes);
            Bytes = nullptr;
            Size = 0;
        }
    }
};

thread_local KeptBlock keptBlock;

uint8_t* AllocateBytes(size_t size, Counter shortage) {
    auto* bytes = static_cast<uint8_t*>(thePlatform.Memory->AllocateBuffer(size));
    if (bytes == nullptr) {
        theProcessCounters.Increment(shortage);
        Raise(Code::NoWorkArea);
    }
    return bytes;
}

}  // namespace

WorkArea::WorkArea(size_t size, Counter shortage) {
    KeptBlock& block = keptBlock;
    if (block.InUse || size > kLargestKept) {
        bytes_ = AllocateBytes(size, shortage);
        return;
    }
    if (block.Size < size) {
        block.Drop();
        block.Bytes = AllocateBytes(size, shortage);
        block.Size = size;
    }
    block.InUse = true;
    kept_ = true;
    bytes_ = block.Bytes;
}

WorkArea::~WorkArea() {
    if (kept_) {
        keptBlock.InUse = false;
    } else {
        thePlatform.Memory->FreeBuffer(bytes_);
    }
}

}  // namespace qx
