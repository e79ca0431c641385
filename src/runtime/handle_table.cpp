#include "runtime/handle_table.h"

#include <bit>
#include <cstring>

#include "runtime/status.h"

namespace qx {

namespace {

uint32_t ChunkOf(uint32_t handle) {
    return static_cast<uint32_t>(std::bit_width(handle + 1)) - 1;
}

}  // namespace

HandleTable::Slot& HandleTable::SlotOf(uint32_t handle) {
    const uint32_t chunk = ChunkOf(handle);
    return chunks_[chunk][handle + 1 - (1U << chunk)];
}

void HandleTable::AddSlot() {
    const uint32_t added = SlotCount();
    const uint32_t chunk = ChunkOf(added);
    if (chunk == kChunks) {
        Raise(Code::NoMemory);
    }
    if (chunks_[chunk] == nullptr) {
        chunks_[chunk] = static_cast<Slot*>(theRecordHeap.AllocateZeroed(sizeof(Slot) << chunk));
    }
    SlotOf(added).NextFree = kNoHandle;
    slotCount_.store(added + 1, std::memory_order_release);
    freeHead_ = added;
    freeTail_ = added;
}

void* HandleTable::AllocatePayload(uint32_t size, uint32_t* handle) {
    if (freeHead_ == kNoHandle) {
        AddSlot();
    }
    Slot& slot = SlotOf(freeHead_);
    Record* record = slot.Handle.load(std::memory_order_relaxed);
    if (record == nullptr) {
        record = new (theRecordHeap.AllocateZeroed(sizeof(Record) + size)) Record();
        slot.Handle.store(record, std::memory_order_release);
    }
    void* payload = record + 1;
    std::memset(payload, 0, size);
    record->Gate.BeginOpen();
    *handle = freeHead_;
    freeHead_ = freeHead_ == freeTail_ ? kNoHandle : slot.NextFree;
    return payload;
}

void HandleTable::FreeSlot(uint32_t handle) {
    if (freeHead_ == kNoHandle) {
        freeHead_ = handle;
    } else {
        SlotOf(freeTail_).NextFree = handle;
    }
    freeTail_ = handle;
    SlotOf(handle).NextFree = kNoHandle;
    GateOf(handle).EndClose();
}

void* HandleTable::EnterPayload(uint32_t handle) {
    if (handle >= slotCount_.load(std::memory_order_acquire)) {
        Raise(Code::NotOpen, 0, 1);
    }
    Record* record = SlotOf(handle).Handle.load(std::memory_order_acquire);
    if (record == nullptr || !record->Gate.Enter()) {
        Raise(Code::NotOpen);
    }
    return record + 1;
}

void HandleTable::Destroy() {
    for (uint32_t handle = 0; handle < SlotCount(); ++handle) {
        if (Record* record = RecordOf(handle); record != nullptr) {
            theRecordHeap.Free(record);
        }
    }
    for (Slot*& chunk : chunks_) {
        if (chunk != nullptr) {
            theRecordHeap.Free(chunk);
            chunk = nullptr;
        }
    }
    slotCount_ = 0;
    freeHead_ = kNoHandle;
    freeTail_ = kNoHandle;
}

}  // namespace qx
