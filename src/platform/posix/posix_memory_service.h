#pragma once

#include "platform/memory_service.h"

namespace qx {

class PosixMemoryService final : public MemoryService {
  public:
    PrivateHeap* CreateHeap(bool guarded) override;
    void DestroyHeap(PrivateHeap* heap) override;
    void* AllocateBuffer(size_t size) override;
    void FreeBuffer(void* buffer) override;
};

}  // namespace qx
