// The heap on which all library records live.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "platform/memory_service.h"
#include "runtime/spin_lock.h"

namespace qx {

class RecordHeap {
    struct FreeBlock {
        void operator()(void* block) const;
    };

  public:
    // False when the system gives no heap.
    bool Create();
    // Frees every record that is still there.
    void Destroy();

    // Null when there is no memory.
    void* Allocate(size_t size);
    // Zero bytes; no memory is counted in "Allocate File Data Errors" and raised as 1015.
    void* AllocateZeroed(size_t size);
    void Free(void* block);

    // Records allocated and not yet freed.
    size_t BlockCount();

    // A record of type T, made and ended in place.
    template <class T, class... Arguments>
    T* Make(Arguments&&... arguments) {
        std::unique_ptr<void, FreeBlock> block(AllocateZeroed(sizeof(T)));
        T* record = new (block.get()) T(std::forward<Arguments>(arguments)...);
        block.release();
        return record;
    }

    template <class T>
    void End(T* record) {
        record->~T();
        Free(record);
    }

  private:
    SpinLock lock_;
    PrivateHeap* heap_ = nullptr;
};

extern RecordHeap theRecordHeap;

inline void RecordHeap::FreeBlock::operator()(void* block) const {
    theRecordHeap.Free(block);
}

// Owns a record until it is released to the structure that keeps it.
template <class T>
struct EndRecord {
    void operator()(T* record) const { theRecordHeap.End(record); }
};

template <class T>
using OwnedRecord = std::unique_ptr<T, EndRecord<T>>;

// Lets a container of the standard library keep its nodes on the record heap.
template <class T>
struct RecordHeapAllocator {
    using value_type = T;

    RecordHeapAllocator() = default;
    template <class Other>
    explicit(false) RecordHeapAllocator(const RecordHeapAllocator<Other>&) {}

    T* allocate(size_t count) { return static_cast<T*>(theRecordHeap.AllocateZeroed(count * sizeof(T))); }
    void deallocate(T* block, size_t) { theRecordHeap.Free(block); }

    friend bool operator==(const RecordHeapAllocator&, const RecordHeapAllocator&) { return true; }
};

}  // namespace qx
