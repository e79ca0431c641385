#include "runtime/record_heap.h"

#include <cstring>

#include "runtime/counters.h"
#include "runtime/status.h"

namespace qx {

constinit RecordHeap theRecordHeap;

bool RecordHeap::Create() {
    heap_ = thePlatform.Memory->CreateHeap(false);
    return heap_ != nullptr;
}

void RecordHeap::Destroy() {
    thePlatform.Memory->DestroyHeap(heap_);
    heap_ = nullptr;
}

void* RecordHeap::Allocate(size_t size) {
    const SpinHold hold(lock_);
    return heap_->Allocate(size);
}

void* RecordHeap::AllocateZeroed(size_t size) {
    void* block = Allocate(size);
    if (block == nullptr) {
        theProcessCounters.Increment(Counter::AllocateFileDataErrors);
        Raise(Code::NoMemory);
    }
    return std::memset(block, 0, size);
}

void RecordHeap::Free(void* block) {
    const SpinHold hold(lock_);
    heap_->Free(block);
}

size_t RecordHeap::BlockCount() {
    const SpinHold hold(lock_);
    return heap_ == nullptr ? 0 : heap_->BlockCount();
}

}  // namespace qx
