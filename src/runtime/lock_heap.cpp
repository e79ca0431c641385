#include "runtime/lock_heap.h"

#include "platform/platform.h"

namespace qx {

constinit LockHeap theLockHeap;

bool LockHeap::Create() {
    heap_ = thePlatform.Memory->CreateHeap(true);
    return heap_ != nullptr;
}

void LockHeap::Destroy() {
    thePlatform.Memory->DestroyHeap(heap_);
    heap_ = nullptr;
}

}  // namespace qx
