#include "storage/caller_group_lock.h"

#include "platform/platform.h"
#include "storage/operation_context.h"
#include "storage/resize_queue.h"
#include "storage/select_hold.h"

namespace qx {

struct CallerGroupLock {
    bool Held = false;
    uint32_t File = kNoHandle;      // the handle it was taken through
    ClaimMutex::Node PrimaryClaim;  // on the primary file's mutex
    GroupLockRequest Request;
};

namespace {

constexpr uint32_t kRetryMilliseconds = 55;

void ClaimPrimary(OpenFile& file, ClaimMutex::Node& node) {
    if (!file.PrimaryPart.Cached.Mutex.Claim(node)) {
        Raise(Code::CannotSuspend);
    }
}

void ReleasePrimary(OpenFile& file, ClaimMutex::Node& node) {
    file.PrimaryPart.Cached.Mutex.Release(node);
}

// Owns the primary file's mutex with the caller's node until it is handed on to the session.
class PrimaryClaim {
  public:
    PrimaryClaim(OpenFile& file, ClaimMutex::Node& node) : file_(file), node_(node) { Claim(); }
    ~PrimaryClaim() { Release(); }
    PrimaryClaim(const PrimaryClaim&) = delete;
    PrimaryClaim& operator=(const PrimaryClaim&) = delete;

    void Claim() {
        ClaimPrimary(file_, node_);
        owned_ = true;
    }

    void Release() {
        if (owned_) {
            owned_ = false;
            ReleasePrimary(file_, node_);
        }
    }

    void HandOn() { owned_ = false; }

  private:
    OpenFile& file_;
    ClaimMutex::Node& node_;
    bool owned_ = false;
};

// Keeps the worker away from a file: it would wait for the primary file's mutex for as long as the application likes,
// and stopping the library would wait for the worker. A step under way is waited for.
class WorkerBan {
  public:
    explicit WorkerBan(OpenFile& file) : file_(&file) {
        const ClaimHold structure(file.StructureMutex);
        ++file.CallerLocks;
        theResizeQueue.Remove(file);
    }
    ~WorkerBan() {
        if (file_ != nullptr) {
            Lift(*file_);
        }
    }
    WorkerBan(const WorkerBan&) = delete;
    WorkerBan& operator=(const WorkerBan&) = delete;

    // Leaves the ban in force, to be lifted with the lock.
    void HandOn() { file_ = nullptr; }

    static void Lift(OpenFile& file) {
        --file.CallerLocks;
        theResizeQueue.Check(file);
    }

  private:
    OpenFile* file_;
};

bool HasUnstoredCounts(OpenFile& file) {
    return !file.HeaderIsLoaded() || (!file.OpenedReadOnly && file.Counts.DifferFromStored(file.Group0HeaderSize));
}

// What goes wrong after attaching is noted: the counts then stay unstored and are tried again.
void StoreCounts(FileCall& call, FirstFailure& failure) {
    const PrimaryAttachment attachment(*call.File);
    failure.Run([&] {
        OperationContext context(*call.File, call.Levels);
        if (HasUnstoredCounts(*call.File)) {
            WriteHeaderIfDifferent(context);
        }
    });
}

// A flush may be using the overflow file, and for a select hold the primary file is given up before the overflow file
// is looked at: a call may be using it by then.
void CloseUnused(FilePart& part) {
    if (!part.Cached.Shut()) {
        return;
    }
    if (part.Cached.IsOpen()) {
        CloseShared(part.Cached);
    }
    part.Written = false;
}

// Leaves the primary file's mutex claimed, the file shut and its counts stored. Counts that cannot be stored for as
// long as a group lock may wait are a failure.
void Quiesce(FileCall& call, PrimaryClaim& claim) {
    OpenFile& file = *call.File;
    FirstFailure failure;
    const uint64_t start = thePlatform.Clock->MonotonicMilliseconds();
    for (;;) {
        if (!file.PrimaryPart.Cached.Shut()) {
            claim.Release();
        } else if (HasUnstoredCounts(file)) {
            claim.Release();
            StoreCounts(call, failure);
            if (thePlatform.Clock->MonotonicMilliseconds() - start >
                uint64_t{call.Settings().GroupLockTimeout} * 1000) {
                failure.RaiseIfAny();
            }
        } else {
            return;
        }
        thePlatform.Threads->Sleep(kRetryMilliseconds);
        claim.Claim();
    }
}

void CloseOverflow(OpenFile& file) {
    const ClaimHold hold(file.OverflowPart.Cached.Mutex);
    CloseUnused(file.OverflowPart);
}

CallerGroupLock& RecordOf(SessionRecord& session) {
    const PatientClaimHold mutex(session.HeldGroupMutex);
    if (session.GroupLock == nullptr) {
        session.GroupLock = theRecordHeap.Make<CallerGroupLock>();
    }
    return *session.GroupLock;
}

// The caller owns the mutex of the session's held group: the file handle stays while the group is given up.
void ReleaseHeldGroup(SessionRecord& session) {
    CallerGroupLock* lock = session.GroupLock;
    if (lock == nullptr || !lock->Held) {
        return;
    }
    lock->Held = false;
    FileHandle& handle = *theLibrary.Files.PayloadOf<FileHandle>(lock->File);
    const FileCall call(session, lock->File, handle);
    UnlockGroup(*call.File, lock->Request, call.Levels);
    call.File->Group0HeaderSize = 0;
    ReleasePrimary(*call.File, lock->PrimaryClaim);
    WorkerBan::Lift(*call.File);
}

}  // namespace

void LockGroupForCaller(FileCall& call, uint32_t group, bool exclusive) {
    const ClaimHold mutex(call.Session->GroupLockMutex);
    ReleaseCallerGroupLock(*call.Session);
    CallerGroupLock& lock = RecordOf(*call.Session);
    OpenFile& file = *call.File;
    WorkerBan ban(file);
    PrimaryClaim claim(file, lock.PrimaryClaim);
    Quiesce(call, claim);
    CloseUnused(file.PrimaryPart);
    CloseOverflow(file);
    const OperationContext context(file, call.Levels);
    LockGroup(file, lock.Request, group, exclusive, call.Levels);
    const PatientClaimHold held(call.Session->HeldGroupMutex);
    lock.File = call.HandleNumber;
    lock.Held = true;
    claim.HandOn();
    ban.HandOn();
}

void TakeSelectHoldForCaller(FileCall& call) {
    const WorkerBan ban(*call.File);
    {
        ClaimMutex::Node node;
        PrimaryClaim claim(*call.File, node);
        Quiesce(call, claim);
        CloseUnused(call.File->PrimaryPart);
    }
    CloseOverflow(*call.File);
    TakeSelectHold(call);
}

void ReleaseCallerGroupLock(SessionRecord& session) {
    const PatientClaimHold mutex(session.HeldGroupMutex);
    ReleaseHeldGroup(session);
}

void ReleaseCallerGroupLockOf(SessionRecord& session, uint32_t fileHandle) {
    const PatientClaimHold mutex(session.HeldGroupMutex);
    if (session.GroupLock != nullptr && session.GroupLock->File == fileHandle) {
        ReleaseHeldGroup(session);
    }
}

void EndCallerGroupLock(SessionRecord& session) {
    ReleaseHeldGroup(session);
    if (session.GroupLock != nullptr) {
        theRecordHeap.End(session.GroupLock);
        session.GroupLock = nullptr;
    }
}

}  // namespace qx
