#include "storage/group_lock_slot.h"

#include "runtime/status.h"

namespace qx {

namespace {

void RaiseUnlessGranted(ByteLockResult result, uint32_t group) {
    switch (result) {
        case ByteLockResult::Granted:
            return;
        case ByteLockResult::Refused:
            Raise(Code::GroupLockTimeout, 1, group);
        case ByteLockResult::Failed:
            Raise(Code::GroupLockServiceFailed, 1, group);
        case ByteLockResult::RefusedInside:
            Raise(Code::LockRefused, 1, group);
    }
}

}  // namespace

void LockGroup(OpenFile& file, GroupLockRequest& request, uint32_t group, bool exclusive, const CounterLevels& levels) {
    if (!file.GroupLocks.Lock(request, group, exclusive, levels)) {
        Raise(Code::NoMemory);
    }
    const LockFile& locks = file.Volume.Locks;
    const ByteLockResult result = file.Volume.ByteLocks.Acquire(request.Byte, locks.Map.GroupUnit(file.NameHash, group),
                                                                exclusive, file.Volume.Settings.GroupLockTimeout);
    if (result != ByteLockResult::Granted) {
        file.GroupLocks.Withdraw(request, levels);
        RaiseUnlessGranted(result, group);
    }
}

// The byte lock goes first: whoever is granted the group next finds it gone, and does not share it by mistake.
void UnlockGroup(OpenFile& file, GroupLockRequest& request, const CounterLevels& levels) {
    file.Volume.ByteLocks.Release(request.Byte);
    file.GroupLocks.Unlock(request, levels);
}

// Other processes take at most one group at a time beside group 0, or take them in the same order, so that in the end
// each group comes free.
AllGroupsLock::AllGroupsLock(OpenFile& file, const CounterLevels& levels) : file_(file), levels_(levels) {
    if (!file.GroupLocks.LockRow(request_, kHeaderGroup + 1, kOverflowAllocation - 1, levels)) {
        Raise(Code::NoMemory);
    }
    const LockFile& locks = file.Volume.Locks;
    uint32_t group = kHeaderGroup + 1;
    size_t i = 0;
    for (const LockUnits& units : locks.Map.GroupUnits(file.NameHash, group, file.Modulo - group)) {
        const ByteLockResult result =
            file.Volume.ByteLocks.AcquireRow(rows_[i], units, file.Volume.Settings.GroupLockTimeout);
        if (result != ByteLockResult::Granted) {
            Unlock();
            RaiseUnlessGranted(result, group + (rows_[i].Held.End - units.First) / locks.Map.Users());
        }
        group += units.Count;
        ++i;
    }
}

AllGroupsLock::~AllGroupsLock() {
    Unlock();
}

void AllGroupsLock::Unlock() {
    for (ByteLockRow& row : rows_) {
        file_.Volume.ByteLocks.ReleaseRow(row);
    }
    file_.GroupLocks.Unlock(request_, levels_);
}

}  // namespace qx
