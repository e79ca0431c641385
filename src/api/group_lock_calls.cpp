// QXLockGroup, QXUnlockGroup.
#include <qx.h>

#include "api/entry.h"
#include "storage/caller_group_lock.h"
#include "storage/select_hold.h"

extern "C" {

int32_t QXLockGroup(uint32_t file, uint32_t group, uint32_t exclusive, StatusRecord* status) {
    using namespace qx;
    return FileOperation(
        file, Counter::LockGroups, status,
        [&](const RemoteFileCall& remote) {
            remote.Ask(LockGroupRequest{remote.File(), group, Saturated<uint8_t>(exclusive)});
        },
        [&](FileCall& call, StatusRecord&) {
            if (group == kSelectHold) {
                TakeSelectHoldForCaller(call);
            } else {
                LockGroupForCaller(call, group, exclusive != 0);
            }
            return true;
        });
}

int32_t QXUnlockGroup(uint32_t file, uint32_t group, StatusRecord* status) {
    using namespace qx;
    return FileOperation(
        file, Counter::UnlockGroups, status,
        [&](const RemoteFileCall& remote) {
            remote.Ask(UnlockGroupRequest{remote.File(), group});
        },
        [&](FileCall& call, StatusRecord&) {
            if (group == kSelectHold) {
                if (call.File->SelectCount > 0) {
                    ReleaseSelectHold(call);
                }
            } else {
                ReleaseCallerGroupLock(*call.Session);
            }
            return true;
        });
}

}  // extern "C"
