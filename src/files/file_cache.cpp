#include "files/file_cache.h"

#include <new>

#include "platform/platform.h"
#include "runtime/counters.h"

namespace qx {

// The files that may be closed while they are idle, in the order in which they last became so. A file in use keeps its
// place: most files are used and idle by turns, and the one at the head comes back to it.
struct IdleOrder {
    SpinLock Lock;                            // everything below
    std::atomic<CachedFile*> Head = nullptr;  // idle most recently; read without the lock to see that nothing changes
    CachedFile* Tail = nullptr;               // idle longest

    void Link(CachedFile& entry) {
        entry.previous_ = nullptr;
        entry.next_ = Head;
        (entry.next_ == nullptr ? Tail : entry.next_->previous_) = &entry;
        Head = &entry;
        entry.listed_ = true;
    }

    void Unlink(CachedFile& entry) {
        if (entry.previous_ == nullptr) {
            Head = entry.next_;
        } else {
            entry.previous_->next_ = entry.next_;
        }
        (entry.next_ == nullptr ? Tail : entry.next_->previous_) = entry.previous_;
        entry.listed_ = false;
    }

    void MoveToHead(CachedFile& entry) {
        if (Head.load(std::memory_order_relaxed) == &entry) {
            return;
        }
        const SpinHold hold(Lock);
        if (entry.listed_) {
            Unlink(entry);
            Link(entry);
        }
    }

    // The mutex of the file that has been idle longest of those whose mutex is free, which are shut and unlinked.
    // Everybody else takes a file's mutex before the lock; here it is the other way round, which cannot deadlock
    // because the mutex is only tried.
    CachedFile* TakeLongestIdle(ClaimMutex::Node& node) {
        const SpinHold hold(Lock);
        for (CachedFile* entry = Tail; entry != nullptr; entry = entry->previous_) {
            if (entry->UserCount() != 0 || !entry->Mutex.TryClaim(node)) {
                continue;
            }
            if (entry->Shut()) {
                Unlink(*entry);
                return entry;
            }
            entry->Mutex.Release(node);
        }
        return nullptr;
    }
};

namespace {

constinit IdleOrder idleOrder;

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

bool CachedFile::Join() {
    uint32_t users = users_.load(std::memory_order_relaxed);
    while ((users & kShut) == 0) {
        if (users_.compare_exchange_weak(users, users + 1, std::memory_order_acquire, std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

void CachedFile::Leave() {
    if ((users_.fetch_sub(1, std::memory_order_release) & ~kShut) == 1) {
        idleOrder.MoveToHead(*this);
    }
}

void CachedFile::Admit() {
    AddUser();
    users_.fetch_and(~kShut, std::memory_order_release);
}

bool CachedFile::Shut() {
    uint32_t users = users_.load(std::memory_order_relaxed);
    while ((users & ~kShut) == 0) {
        if (users_.compare_exchange_weak(users, kShut, std::memory_order_acquire, std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

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

void LetCloseWhenIdle(CachedFile& entry) {
    const SpinHold hold(idleOrder.Lock);
    idleOrder.Link(entry);
}

void CloseShared(CachedFile& entry) {
    entry.Shut();
    {
        const SpinHold hold(idleOrder.Lock);
        idleOrder.Unlink(entry);
    }
    CacheCloseFile(entry);
}

bool CloseOneIdleFile() {
    ClaimMutex::Node node;
    CachedFile* found = idleOrder.TakeLongestIdle(node);
    if (found == nullptr) {
        return false;
    }
    CacheCloseFile(*found);
    found->Mutex.Release(node);
    return true;
}

void ForgetIdleFiles() {
    new (&idleOrder) IdleOrder;
}

}  // namespace qx
