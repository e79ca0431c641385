// A place for one group lock in the work of a call.
#pragma once

#include <cstdint>

#include "locking/group_lock_queue.h"
#include "storage/open_file.h"

namespace qx {

// Holds at most one group of one file and releases it when it ends.
class GroupLockSlot {
  public:
    GroupLockSlot(OpenFile& file, const CounterLevels& levels) : file_(file), levels_(levels) {}
    ~GroupLockSlot() { Release(); }
    GroupLockSlot(const GroupLockSlot&) = delete;
    GroupLockSlot& operator=(const GroupLockSlot&) = delete;

    // The slot is empty. Waits for threads of this process without time limit; raises 1015 when it would have to wait
    // and no wait event can be had.
    void Lock(uint32_t group, bool exclusive);
    // Every group but group 0, exclusively; the caller holds group 0 exclusively.
    void LockAllButHeader();
    // Does nothing to an empty slot.
    void Release();

    bool IsHeld() const { return request_.Granted; }
    bool IsHeldExclusive() const { return request_.Granted && request_.Exclusive; }

  private:
    OpenFile& file_;
    const CounterLevels& levels_;
    GroupLockRequest request_;
};

}  // namespace qx
