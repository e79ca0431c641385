// Group locks among the threads of the process: a first-come, first-served reader-writer lock for every group of a
// file.
#pragma once

#include <cstdint>

#include "locking/byte_lock.h"
#include "runtime/counters.h"
#include "runtime/spin_lock.h"

namespace qx {

// Pseudo-groups.
inline constexpr uint32_t kHeaderGroup = 0;                  // the file header lies in group 0
inline constexpr uint32_t kOverflowAllocation = 0xFFFFFFFF;  // guards the free-frame list
inline constexpr uint32_t kSelectHold = 0xFFFFFFFE;          // stands for a select hold in QXLockGroup

// One request for a group lock, in the storage of whoever wants it.
struct GroupLockRequest {
    uint32_t Group = 0;
    uint32_t LastGroup = 0;  // the same group, unless the request is for a row of groups
    bool Exclusive = false;
    bool Granted = false;
    EventIndex Event = 0;  // while the request waits
    GroupLockRequest* Next = nullptr;
    ByteLock Byte;  // what keeps other processes off, once the request is granted; not the queue's business
};

// The requests of all threads for all groups of one file, in order of arrival. A request waits while an earlier one for
// its group conflicts with it.
class GroupLockQueue {
  public:
    // Waits without time limit. False, and the request holds nothing, when it would have to wait and no wait event can
    // be had (1015).
    bool Lock(GroupLockRequest& request, uint32_t group, bool exclusive, const CounterLevels& levels);

    // The same for every group from `first` to `last` at once, exclusively; the caller counts the locks. Nobody who
    // holds a group in the row may ask for one in it, or for one that the caller holds.
    bool LockRow(GroupLockRequest& request, uint32_t first, uint32_t last, const CounterLevels& levels);

    void Unlock(GroupLockRequest& request, const CounterLevels& levels);

    // Takes a granted request back, as if it had failed.
    void Withdraw(GroupLockRequest& request, const CounterLevels& levels);

    bool IsEmpty();

  private:
    bool Enqueue(GroupLockRequest& request, const CounterLevels& levels);
    bool MustWait(const GroupLockRequest& request) const;
    void WakeSuccessors(const GroupLockRequest& removed, const CounterLevels& levels);

    SpinLock lock_;
    GroupLockRequest* head_ = nullptr;
};

}  // namespace qx
