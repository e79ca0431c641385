#include "files/file_cache.h"

#include <new>

#include "platform/platform.h"
#include "runtime/counters.h"

namespace qx {

namespace {

struct IdleList {
    SpinLock Lock;
    CachedFile* Head = nullptr;  // idle most recently
    CachedFile* Tail = nullptr;  // idle longest

    // Under the lock.
    void Unlink(CachedFile& entry) {
        (entry.IdlePrevious == nullptr ? Head : entry.IdlePrevious->IdleNext) = entry.IdleNext;
        (entry.IdleNext == nullptr ? Tail : entry.IdleNext->IdlePrevious) = entry.IdlePrevious;
        entry.IdlePrevious = nullptr;
        entry.IdleNext = nullptr;
    }
};

constinit IdleList idleList;

template <class Operation>
FileResult RetryWithoutIdleFiles(Operation&& operation) {
    FileResult result = operation();
    while (result == FileResult::Exhausted && CloseOneIdleFile()) {
        result = operation();
    }
    return result;
}

template <class Open>
FileResult OpenEntry(CachedFile& entry, Open&& open) {
    OsHandle handle = kNoOsHandle;
    const FileResult result = RetryWithoutIdleFiles([&] { return open(&handle); });
    if (result == FileResult::Done) {
        theProcessCounters.Enter(Counter::ActiveFileHandles, Counter::PeakActiveFileHandles);
    }
    entry.Handle = result == FileResult::Done ? handle : kNoOsHandle;
    return result;
}

}  // namespace

FileResult CacheFileExists(std::string_view name) {
    return RetryWithoutIdleFiles([&] { return OsFileExists(name); });
}

FileResult CacheCreateFile(std::string_view name, Sharing sharing, CachedFile& entry) {
    return OpenEntry(entry, [&](OsHandle* handle) { return OsCreateFile(name, sharing, handle); });
}

FileResult CacheOpenFile(std::string_view name, Access access, Sharing sharing, CachedFile& entry) {
    return OpenEntry(entry, [&](OsHandle* handle) { return OsOpenFile(name, access, sharing, handle); });
}

FileResult CacheClaimForDelete(std::string_view name, OsHandle* claim) {
    return RetryWithoutIdleFiles([&] { return OsClaimForDelete(name, claim); });
}

FileResult CacheDeleteFile(std::string_view name) {
    OsHandle claim = kNoOsHandle;
    const FileResult result = CacheClaimForDelete(name, &claim);
    return result == FileResult::Done ? OsDeleteClaimed(name, claim) : result;
}

FileResult TakeUserSlotMarker(CachedFile& entry, uint32_t userSlot, Access access) {
    const uint64_t position = ~uint64_t{userSlot};
    const LockMode mode = access == Access::ReadOnly ? LockMode::Shared : LockMode::Exclusive;
    const SystemError error = thePlatform.Files->TryLock(entry.Handle, position, 1, mode);
    if (error == SystemError::None) {
        entry.MarkerPosition = position;
        return FileResult::Done;
    }
    return error == SystemError::InUse ? FileResult::Failed : FileResult::Exhausted;
}

void CacheCloseFile(CachedFile& entry) {
    if (entry.MarkerPosition != 0) {
        thePlatform.Files->Unlock(entry.Handle, entry.MarkerPosition, 1);
        entry.MarkerPosition = 0;
    }
    OsClose(entry.Handle);
    entry.Handle = kNoOsHandle;
    theProcessCounters.Leave(Counter::ActiveFileHandles);
}

void IdleListAdd(CachedFile& entry) {
    const SpinHold hold(idleList.Lock);
    entry.IdlePrevious = nullptr;
    entry.IdleNext = idleList.Head;
    (idleList.Head == nullptr ? idleList.Tail : idleList.Head->IdlePrevious) = &entry;
    idleList.Head = &entry;
}

void IdleListRemove(CachedFile& entry) {
    const SpinHold hold(idleList.Lock);
    idleList.Unlink(entry);
}

// Everybody else takes an entry's mutex before the list's lock; here it is the other way round, which cannot deadlock
// because the mutex is only tried.
bool CloseOneIdleFile() {
    ClaimMutex::Node node;
    CachedFile* found = nullptr;
    {
        const SpinHold hold(idleList.Lock);
        for (CachedFile* entry = idleList.Tail; entry != nullptr; entry = entry->IdlePrevious) {
            if (entry->Mutex.TryClaim(node)) {
                idleList.Unlink(*entry);
                found = entry;
                break;
            }
        }
    }
    if (found == nullptr) {
        return false;
    }
    CacheCloseFile(*found);
    found->Mutex.Release(node);
    return true;
}

void ForgetIdleFiles() {
    new (&idleList) IdleList;
}

}  // namespace qx
