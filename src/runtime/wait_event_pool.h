// Reusable wait events, known to their users by index.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/event_service.h"
#include "runtime/spin_lock.h"

namespace qx {

using EventIndex = uint32_t;

class WaitEventPool {
  public:
    // Makes room for the first entries on the record heap; false when there is no memory.
    bool Create();
    // Closes every event.
    void Destroy();

    // An event that is not signalled, or nothing when none can be had.
    std::optional<EventIndex> Take();
    // Waits without time limit and gives the event back.
    void Wait(EventIndex index);
    void Signal(EventIndex index);
    void GiveBack(EventIndex index);

    uint32_t Capacity();
    // Entries that carry an event and are not on the free list.
    uint32_t TakenCount();

  private:
    static constexpr uint32_t kGrowth = 16;
    static constexpr uint32_t kNone = 0xFFFFFFFF;

    struct Entry {
        uint32_t NextFree;
        OsEvent* Event;
    };

    OsEvent* EventOf(EventIndex index);
    bool Grow();

    Entry* entries_ = nullptr;
    uint32_t capacity_ = 0;
    uint32_t count_ = 0;
    uint32_t freeHead_ = kNone;
    SpinLock poolLock_;   // everything but what tableLock_ guards
    SpinLock tableLock_;  // the array's address, against growth while an entry is read
};

extern WaitEventPool theWaitEvents;

}  // namespace qx
