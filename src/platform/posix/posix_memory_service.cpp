#include "platform/posix/posix_memory_service.h"

#include <cstddef>
#include <cstdlib>
#include <mutex>
#include <new>

namespace qx {

namespace {

// A heap is a ring of the blocks that stand on it, so that it can free those that nobody gave back.
class RingHeap final : public PrivateHeap {
  public:
    explicit RingHeap(bool guarded) : guarded_(guarded) {}

    ~RingHeap() override {
        while (ring_.Next != &ring_) {
            Remove(ring_.Next);
        }
    }

    void* Allocate(size_t size) override {
        if (size > SIZE_MAX - sizeof(Link)) {
            return nullptr;
        }
        void* memory = std::malloc(sizeof(Link) + size);
        if (memory == nullptr) {
            return nullptr;
        }
        const std::unique_lock guard = Guard();
        Link* link = new (memory) Link{ring_.Previous, &ring_};
        ring_.Previous->Next = link;
        ring_.Previous = link;
        ++blockCount_;
        return link + 1;
    }

    void Free(void* block) override {
        const std::unique_lock guard = Guard();
        Remove(static_cast<Link*>(block) - 1);
    }

    size_t BlockCount() const override {
        const std::unique_lock guard = Guard();
        return blockCount_;
    }

  private:
    struct alignas(std::max_align_t) Link {
        Link* Previous;
        Link* Next;
    };

    std::unique_lock<std::mutex> Guard() const {
        return guarded_ ? std::unique_lock(mutex_) : std::unique_lock(mutex_, std::defer_lock);
    }

    void Remove(Link* link) {
        link->Previous->Next = link->Next;
        link->Next->Previous = link->Previous;
        --blockCount_;
        std::free(link);
    }

    const bool guarded_;
    mutable std::mutex mutex_;
    Link ring_{&ring_, &ring_};
    size_t blockCount_ = 0;
};

}  // namespace

PrivateHeap* PosixMemoryService::CreateHeap(bool guarded) {
    return new (std::nothrow) RingHeap(guarded);
}

void PosixMemoryService::DestroyHeap(PrivateHeap* heap) {
    delete heap;
}

void* PosixMemoryService::AllocateBuffer(size_t size) {
    return std::malloc(size);
}

void PosixMemoryService::FreeBuffer(void* buffer) {
    std::free(buffer);
}

}  // namespace qx
