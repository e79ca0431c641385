// The heap of the records of file and record locks; it guards itself.
#pragma once

#include <cstddef>

#include "platform/memory_service.h"

namespace qx {

class LockHeap {
  public:
    bool Create();
    void Destroy();

    // Null when there is no memory.
    void* Allocate(size_t size) { return heap_->Allocate(size); }
    void Free(void* block) { heap_->Free(block); }

    size_t BlockCount() const { return heap_ == nullptr ? 0 : heap_->BlockCount(); }

  private:
    PrivateHeap* heap_ = nullptr;
};

extern LockHeap theLockHeap;

}  // namespace qx
