#include "storage/select_hold.h"

#include "storage/resize_queue.h"

namespace qx {

void TakeSelectHold(FileCall& call) {
    call.Levels.CountWork(Counter::SelectLocks);
    {
        const ClaimHold hold(call.File->StructureMutex);
        if (call.Handle->SelectCount == 0) {
            ++call.File->SelectCount;
        }
        ++call.Handle->SelectCount;
    }
    theResizeQueue.Remove(*call.File);
}

void ReleaseSelectHold(FileCall& call) {
    OpenFile& file = *call.File;
    {
        const OptionalClaimHold hold = OptionalClaimHold::Claim(file.StructureMutex);
        if (hold && call.Handle->SelectCount == 0) {
            return;
        }
        call.Levels.CountWork(Counter::SelectUnlocks);
        if (!hold || --call.Handle->SelectCount > 0 || --file.SelectCount > 0) {
            return;
        }
        if (file.SizeLock <= 1) {
            file.Counts.RestartTally(file.Modulo);
        }
    }
    theResizeQueue.Check(file);
}

void ReleaseAllSelectHolds(FileCall& call) {
    if (call.Handle->SelectCount > 0) {
        call.Handle->SelectCount = 1;
        ReleaseSelectHold(call);
    }
}

}  // namespace qx
