#include "storage/select_hold.h"

#include "storage/resize_queue.h"
#include "storage/select_lock.h"

namespace qx {

namespace {

// A file whose number of groups never changes may be counted in several goes.
void RestartUnfinishedTally(OpenFile& file) {
    if (file.SizeLock <= 1) {
        file.Counts.RestartTally(file.Modulo);
    }
}

// By the owner of the structure mutex: leaves the handle so many holds. True when the process has none on the file any
// more.
bool ReduceHolds(FileCall& call, uint32_t left) {
    OpenFile& file = *call.File;
    call.Handle->SelectCount = left;
    if (left > 0 || --file.SelectCount > 0) {
        return false;
    }
    UnlockSelect(file);
    RestartUnfinishedTally(file);
    return true;
}

}  // namespace

void TakeSelectHold(FileCall& call) {
    OpenFile& file = *call.File;
    call.Levels.CountWork(Counter::SelectLocks);
    {
        const ClaimHold hold(file.StructureMutex);
        if (call.Handle->SelectCount == 0) {
            if (file.SelectCount == 0) {
                LockSelectShared(file);
                // A read under an earlier hold may have been counted after that was gone.
                RestartUnfinishedTally(file);
            }
            ++file.SelectCount;
        }
        ++call.Handle->SelectCount;
    }
    theResizeQueue.Remove(file);
}

void ReleaseSelectHold(FileCall& call) {
    call.Levels.CountWork(Counter::SelectUnlocks);
    {
        const OptionalClaimHold hold = OptionalClaimHold::Claim(call.File->StructureMutex);
        if (!hold || call.Handle->SelectCount == 0 || !ReduceHolds(call, call.Handle->SelectCount - 1)) {
            return;
        }
    }
    theResizeQueue.Check(*call.File);
}

// Without fail: nobody could give up the holds of a handle that is gone.
void ReleaseAllSelectHolds(FileCall& call) {
    if (call.Handle->SelectCount == 0) {
        return;
    }
    call.Levels.CountWork(Counter::SelectUnlocks);
    {
        const PatientClaimHold hold(call.File->StructureMutex);
        if (!ReduceHolds(call, 0)) {
            return;
        }
    }
    theResizeQueue.Check(*call.File);
}

}  // namespace qx
