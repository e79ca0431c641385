// QXSharedLockFile, QXExclusiveLockFile, QXUnlockFile, QXSharedLockRecord, QXExclusiveLockRecord, QXUnlockRecord,
// QXUnlockAll.
#include <qx.h>

#include "api/entry.h"
#include "storage/caller_group_lock.h"
#include "storage/session_locks.h"

namespace qx {

namespace {

Code CodeOf(LockOutcome outcome) {
    switch (outcome) {
        case LockOutcome::HeldAlready:
            return Code::AlreadyLocked;
        case LockOutcome::HeldElsewhere:
            return Code::LockedElsewhere;
        case LockOutcome::NoMemory:
            return Code::NoLockMemory;
        case LockOutcome::ServiceFailed:
            return Code::LockServiceFailed;
        case LockOutcome::RefusedInside:
            return Code::LockRefused;
        default:
            return Code::None;
    }
}

bool GrantedOrStatus(LockOutcome outcome, StatusRecord& status) {
    if (outcome != LockOutcome::Granted) {
        status = MakeStatus(CodeOf(outcome));
    }
    return outcome == LockOutcome::Granted;
}

bool UnlockedOrStatus(bool unlocked, Code code, StatusRecord& status) {
    if (!unlocked) {
        status = MakeStatus(code);
    }
    return unlocked;
}

// Whatever the callback says about a key that it does not hand over, to lock it has failed with 160.
std::string_view KeyToLock(const FileCall& call, uint32_t key) {
    FirstFailure failure;
    std::string_view bytes;
    if (!failure.Run([&] { bytes = call.Session->Buffers.Get(key); })) {
        Raise(Code::BufferRefused);
    }
    return bytes;
}

template <Opcode opcode>
int32_t LockFileFor(uint32_t file, bool exclusive, Counter counter, StatusRecord* status) {
    return FileOperation(
        file, counter, status, [](const RemoteFileCall& remote) { remote.Ask<opcode>(); },
        [&](FileCall& call, StatusRecord& target) { return GrantedOrStatus(LockWholeFile(call, exclusive), target); });
}

template <Opcode opcode>
int32_t LockRecordFor(uint32_t file, uint32_t key, bool exclusive, Counter counter, StatusRecord* status) {
    return FileOperation(
        file, counter, status, [&](const RemoteFileCall& remote) { remote.Ask<opcode>(remote.Send(key)); },
        [&](FileCall& call, StatusRecord& target) {
            return GrantedOrStatus(LockRecord(call, KeyToLock(call, key), exclusive), target);
        });
}

}  // namespace

}  // namespace qx

extern "C" {

int32_t QXSharedLockFile(uint32_t file, StatusRecord* status) {
    using namespace qx;
    return LockFileFor<Opcode::SharedLockFile>(file, false, Counter::SharedLockFiles, status);
}

int32_t QXExclusiveLockFile(uint32_t file, StatusRecord* status) {
    using namespace qx;
    return LockFileFor<Opcode::ExclusiveLockFile>(file, true, Counter::ExclusiveLockFiles, status);
}

int32_t QXUnlockFile(uint32_t file, StatusRecord* status) {
    using namespace qx;
    return FileOperation(
        file, Counter::UnlockFiles, status, [](const RemoteFileCall& remote) { remote.Ask<Opcode::UnlockFile>(); },
        [](FileCall& call, StatusRecord& target) {
            return UnlockedOrStatus(UnlockWholeFile(call), Code::FileNotLocked, target);
        });
}

int32_t QXSharedLockRecord(uint32_t file, uint32_t key, StatusRecord* status) {
    using namespace qx;
    return LockRecordFor<Opcode::SharedLockRecord>(file, key, false, Counter::SharedLockRecords, status);
}

int32_t QXExclusiveLockRecord(uint32_t file, uint32_t key, StatusRecord* status) {
    using namespace qx;
    return LockRecordFor<Opcode::ExclusiveLockRecord>(file, key, true, Counter::ExclusiveLockRecords, status);
}

int32_t QXUnlockRecord(uint32_t file, uint32_t key, StatusRecord* status) {
    using namespace qx;
    return FileOperation(
        file, Counter::UnlockRecords, status,
        [&](const RemoteFileCall& remote) { remote.Ask<Opcode::UnlockRecord>(remote.Send(key)); },
        [&](FileCall& call, StatusRecord& target) {
            const std::string_view bytes = call.Session->Buffers.Get(key);
            return UnlockedOrStatus(UnlockRecord(call, bytes), Code::RecordNotLocked, target);
        });
}

int32_t QXUnlockAll(uint32_t session, StatusRecord* status) {
    using namespace qx;
    return ExportedCall(status, [&](StatusRecord&) {
        SessionEntry entry(session);
        entry.Count(Counter::UnlockAlls);
        ReleaseCallerGroupLock(*entry.Session);
        FirstFailure failure;
        {
            const ClaimHold api(theLibrary.ApiMutex);
            UnlockAllOnServers(*entry.Session, failure);
        }
        failure.Run([&] { ReleaseLocksOfSession(*entry.Session); });
        failure.RaiseIfAny();
        return true;
    });
}

}  // extern "C"
