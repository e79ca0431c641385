#include "storage/select_lock.h"

#include "locking/group_lock_queue.h"

namespace qx {

namespace {

// Detail 2 of the failures; not the number that stands for a select hold, which failures of shared locks carry.
constexpr uint32_t kExclusiveSelect = 0xFFFFFFFF;

ByteLockResult Lock(OpenFile& file, bool exclusive, uint32_t timeoutSeconds) {
    VolumeRecord& volume = file.Volume;
    return volume.ByteLocks.Acquire(file.SelectLock, volume.Locks.Map.SelectUnit(file.NameHash), exclusive,
                                    timeoutSeconds);
}

void RaiseIfBroken(ByteLockResult result, uint32_t detail) {
    if (result == ByteLockResult::Failed) {
        Raise(Code::GroupLockServiceFailed, 1, detail);
    }
    if (result == ByteLockResult::RefusedInside) {
        Raise(Code::LockRefused, 1, detail);
    }
}

}  // namespace

bool TryLockSelectExclusive(OpenFile& file) {
    const ByteLockResult result = Lock(file, true, 0);
    RaiseIfBroken(result, kExclusiveSelect);
    return result == ByteLockResult::Granted;
}

void LockSelectShared(OpenFile& file) {
    const ByteLockResult result = Lock(file, false, file.Volume.Settings.GroupLockTimeout);
    RaiseIfBroken(result, kSelectHold);
    if (result == ByteLockResult::Refused) {
        Raise(Code::GroupLockTimeout, 1, kSelectHold);
    }
}

void UnlockSelect(OpenFile& file) {
    file.Volume.ByteLocks.Release(file.SelectLock);
}

}  // namespace qx
