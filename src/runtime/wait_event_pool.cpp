#include "runtime/wait_event_pool.h"

#include <algorithm>

#include "platform/platform.h"
#include "runtime/record_heap.h"

namespace qx {

constinit WaitEventPool theWaitEvents;

bool WaitEventPool::Create() {
    return Grow();
}

void WaitEventPool::Destroy() {
    for (uint32_t i = 0; i < count_; ++i) {
        thePlatform.Events->Close(entries_[i].Event);
    }
    theRecordHeap.Free(entries_);
    entries_ = nullptr;
    capacity_ = 0;
    count_ = 0;
    freeHead_ = kNone;
}

bool WaitEventPool::Grow() {
    auto* larger = static_cast<Entry*>(theRecordHeap.Allocate((capacity_ + kGrowth) * sizeof(Entry)));
    if (larger == nullptr) {
        return false;
    }
    std::copy_n(entries_, count_, larger);
    Entry* old = entries_;
    {
        const SpinHold hold(tableLock_);
        entries_ = larger;
    }
    capacity_ += kGrowth;
    if (old != nullptr) {
        theRecordHeap.Free(old);
    }
    return true;
}

std::optional<EventIndex> WaitEventPool::Take() {
    EventIndex index;
    OsEvent* event;
    {
        const SpinHold hold(poolLock_);
        if (freeHead_ != kNone) {
            index = freeHead_;
            freeHead_ = entries_[index].NextFree;
            event = entries_[index].Event;
        } else {
            if (count_ == capacity_ && !Grow()) {
                return std::nullopt;
            }
            event = thePlatform.Events->Create();
            if (event == nullptr) {
                return std::nullopt;
            }
            index = count_++;
            entries_[index] = {kNone, event};
        }
    }
    if (!thePlatform.Events->Reset(event)) {
        GiveBack(index);
        return std::nullopt;
    }
    return index;
}

OsEvent* WaitEventPool::EventOf(EventIndex index) {
    const SpinHold hold(tableLock_);
    return entries_[index].Event;
}

void WaitEventPool::Wait(EventIndex index) {
    thePlatform.Events->Wait(EventOf(index));
    GiveBack(index);
}

void WaitEventPool::Signal(EventIndex index) {
    thePlatform.Events->Signal(EventOf(index));
}

void WaitEventPool::GiveBack(EventIndex index) {
    const SpinHold hold(poolLock_);
    entries_[index].NextFree = freeHead_;
    freeHead_ = index;
}

uint32_t WaitEventPool::Capacity() {
    const SpinHold hold(poolLock_);
    return capacity_;
}

uint32_t WaitEventPool::TakenCount() {
    const SpinHold hold(poolLock_);
    uint32_t taken = count_;
    for (uint32_t i = freeHead_; i != kNone; i = entries_[i].NextFree) {
        --taken;
    }
    return taken;
}

}  // namespace qx
