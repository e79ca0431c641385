// A place for one group lock in the work of a call.
#pragma once

#include <array>
#include <cstdint>

#include "locking/group_lock_queue.h"
#include "storage/open_file.h"

namespace qx {

// Locks a group against the other threads of this process and then against other processes. Waits for threads without
// time limit, for processes up to the volume's. Raises 1015 when it would have to wait and no wait event can be had,
// and with the group as detail 1013 (another process kept the group), 1012 (the lock service failed) and 1011 (this
// process has a lock on something that shares the group's bytes in the lock file).
void LockGroup(OpenFile& file, GroupLockRequest& request, uint32_t group, bool exclusive, const CounterLevels& levels);

// The request is granted.
void UnlockGroup(OpenFile& file, GroupLockRequest& request, const CounterLevels& levels);

// Holds at most one group of one file and releases it when it ends.
class GroupLockSlot {
  public:
    GroupLockSlot(OpenFile& file, const CounterLevels& levels) : file_(file), levels_(levels) {}
    ~GroupLockSlot() { Release(); }
    GroupLockSlot(const GroupLockSlot&) = delete;
    GroupLockSlot& operator=(const GroupLockSlot&) = delete;

    // The slot is empty. Raises what LockGroup raises.
    void Lock(uint32_t group, bool exclusive) { LockGroup(file_, request_, group, exclusive, levels_); }
    // Does nothing to an empty slot.
    void Release() {
        if (request_.Granted) {
            UnlockGroup(file_, request_, levels_);
        }
    }

    bool IsHeld() const { return request_.Granted; }
    bool IsHeldExclusive() const { return request_.Granted && request_.Exclusive; }

  private:
    OpenFile& file_;
    const CounterLevels& levels_;
    GroupLockRequest request_;
};

// Every group but group 0, exclusively, for as long as the object lives. The caller holds group 0 exclusively and keeps
// the number of groups still.
class AllGroupsLock {
  public:
    // Raises what LockGroup raises.
    AllGroupsLock(OpenFile& file, const CounterLevels& levels);
    ~AllGroupsLock();
    AllGroupsLock(const AllGroupsLock&) = delete;
    AllGroupsLock& operator=(const AllGroupsLock&) = delete;

  private:
    void Unlock();

    OpenFile& file_;
    const CounterLevels& levels_;
    GroupLockRequest request_;
    std::array<ByteLockRow, LockMap::kMostPieces> rows_;
};

}  // namespace qx
