// Private heaps, whose blocks all disappear with the heap, and large buffers.
#pragma once

#include <cstddef>

namespace qx {

class PrivateHeap {
  public:
    virtual ~PrivateHeap() = default;

    // Null when there is no memory. Blocks are aligned for any type and hold arbitrary bytes.
    virtual void* Allocate(size_t size) = 0;
    virtual void Free(void* block) = 0;

    // Blocks allocated and not yet freed.
    virtual size_t BlockCount() const = 0;
};

class MemoryService {
  public:
    virtual ~MemoryService() = default;

    // A heap that only one thread may use at a time, or one that guards itself. Null when there is no memory.
    virtual PrivateHeap* CreateHeap(bool guarded) = 0;
    virtual void DestroyHeap(PrivateHeap* heap) = 0;

    // Null when there is no memory.
    virtual void* AllocateBuffer(size_t size) = 0;
    virtual void FreeBuffer(void* buffer) = 0;
};

}  // namespace qx
