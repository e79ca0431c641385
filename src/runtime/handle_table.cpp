#include "runtime/handle_table.h"

#include <algorithm>
#include <cstring>

#include "runtime/status.h"

namespace qx {

void HandleTable::AddSlot() {
    const size_t bytes = (size_t{slotCount_} + 1) * sizeof(Slot);
    Slot* larger = static_cast<Slot*>(theRecordHeap.AllocateZeroed(bytes));
    std::copy_n(slots_, slotCount_, larger);
    larger[slotCount_] = {kNoHandle, nullptr};
    Slot* old = slots_;
    const uint32_t added = slotCount_;
    {
        const SpinHold hold(lock_);
        slots_ = larger;
        slotCount_ = added + 1;
    }
    if (old != nullptr) {
        theRecordHeap.Free(old);
    }
    freeHead_ = added;
    freeTail_ = added;
}

void* HandleTable::AllocatePayload(uint32_t size, uint32_t* handle) {
    if (freeHead_ == kNoHandle) {
        AddSlot();
    }
    Slot& slot = slots_[freeHead_];
    if (slot.Handle == nullptr) {
        Record* record = new (theRecordHeap.AllocateZeroed(sizeof(Record) + size)) Record();
        const SpinHold hold(lock_);
        slot.Handle = record;
    }
    void* payload = slot.Handle + 1;
    std::memset(payload, 0, size);
    slot.Handle->Gate.BeginOpen();
    *handle = freeHead_;
    freeHead_ = freeHead_ == freeTail_ ? kNoHandle : slot.NextFree;
    return payload;
}

void HandleTable::FreeSlot(uint32_t handle) {
    if (freeHead_ == kNoHandle) {
        freeHead_ = handle;
    } else {
        slots_[freeTail_].NextFree = handle;
    }
    freeTail_ = handle;
    slots_[handle].NextFree = kNoHandle;
    GateOf(handle).EndClose();
}

HandleTable::Record* HandleTable::RecordOf(uint32_t handle) {
    const SpinHold hold(lock_);
    return slots_[handle].Handle;
}

void* HandleTable::EnterPayload(uint32_t handle) {
    Record* record = nullptr;
    {
        const SpinHold hold(lock_);
        if (handle < slotCount_) {
            record = slots_[handle].Handle;
        } else {
            Raise(Code::NotOpen, 0, 1);
        }
    }
    if (record == nullptr || !record->Gate.Enter()) {
        Raise(Code::NotOpen);
    }
    return record + 1;
}

void HandleTable::Destroy() {
    for (uint32_t i = 0; i < slotCount_; ++i) {
        if (slots_[i].Handle != nullptr) {
            theRecordHeap.Free(slots_[i].Handle);
        }
    }
    if (slots_ != nullptr) {
        theRecordHeap.Free(slots_);
    }
    slots_ = nullptr;
    slotCount_ = 0;
    freeHead_ = kNoHandle;
    freeTail_ = kNoHandle;
}

}  // namespace qx
