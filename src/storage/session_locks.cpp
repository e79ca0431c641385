#include "storage/session_locks.h"

namespace qx {

namespace {

// Both mutexes, in their order.
class LocksClaim {
  public:
    explicit LocksClaim(FileCall& call) : session_(call.Session->LockMutex), file_(call.File->Locks.Mutex) {}

  private:
    const ClaimHold session_;
    const ClaimHold file_;
};

LockRequest RequestOf(FileCall& call, bool exclusive) {
    return {call.SessionHandle, call.Session->Locks, call.Handle->Locks, exclusive};
}

LockOutcome Counted(LockOutcome outcome) {
    if (outcome == LockOutcome::NoMemory) {
        theProcessCounters.Increment(Counter::AllocateLockDataErrors);
    }
    return outcome;
}

template <class Lock>
bool ReleaseIfAny(LockTable& table, Lock* lock) {
    if (lock != nullptr) {
        table.Release(*lock);
    }
    return lock != nullptr;
}

// `enter` is told of the table of each lock before that is given up.
template <class Enter>
void ReleaseAll(HeldLocks& locks, Enter&& enter) {
    while (FileLock* lock = locks.Files) {
        enter(*lock->Table);
        lock->Table->Release(*lock);
    }
    while (RecordLock* lock = locks.Records) {
        enter(*lock->Table);
        lock->Table->Release(*lock);
    }
}

}  // namespace

LockOutcome LockWholeFile(FileCall& call, bool exclusive) {
    const LocksClaim claim(call);
    return Counted(call.File->Locks.TakeFileLock(RequestOf(call, exclusive)));
}

LockOutcome LockRecord(FileCall& call, std::string_view key, bool exclusive) {
    const LocksClaim claim(call);
    return Counted(call.File->Locks.TakeRecordLock(RequestOf(call, exclusive), key));
}

bool UnlockWholeFile(FileCall& call) {
    const LocksClaim claim(call);
    LockTable& table = call.File->Locks;
    return ReleaseIfAny(table, table.FindFileLock(call.SessionHandle));
}

bool UnlockRecord(FileCall& call, std::string_view key) {
    const LocksClaim claim(call);
    LockTable& table = call.File->Locks;
    return ReleaseIfAny(table, table.FindRecordLock(call.SessionHandle, key));
}

void ReleaseLocksOfSession(SessionRecord& session) {
    const ClaimHold mutex(session.LockMutex);
    LockTableClaim ofFile;
    ReleaseAll(session.Locks, [&](LockTable& table) { ofFile.MoveTo(table); });
}

// The session's mutex is claimed even if there is nothing to give up: somebody may be giving up all of the session's
// locks, and still own the mutex of this file's.
void ReleaseLocksOfHandle(FileCall& call) {
    const PatientClaimHold session(call.Session->LockMutex);
    const PatientClaimHold file(call.File->Locks.Mutex);
    ReleaseAll(call.Handle->Locks, [](LockTable&) {});
}

}  // namespace qx
