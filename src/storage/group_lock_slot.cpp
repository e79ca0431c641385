#include "storage/group_lock_slot.h"

#include "runtime/status.h"

namespace qx {

void GroupLockSlot::Lock(uint32_t group, bool exclusive) {
    if (!file_.GroupLocks.Lock(request_, group, exclusive, levels_)) {
        Raise(Code::NoMemory);
    }
}

void GroupLockSlot::LockAllButHeader() {
    if (!file_.GroupLocks.LockRow(request_, kHeaderGroup + 1, kOverflowAllocation - 1, levels_)) {
        Raise(Code::NoMemory);
    }
}

void GroupLockSlot::Release() {
    if (request_.Granted) {
        file_.GroupLocks.Unlock(request_, levels_);
    }
}

}  // namespace qx
