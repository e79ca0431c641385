#include "locking/lock_table.h"

#include <cstring>
#include <functional>
#include <new>

#include "runtime/lock_heap.h"

namespace qx {

namespace {

template <auto link, class Lock>
void Push(Lock*& head, Lock& lock) {
    lock.*link = {&head, head};
    if (head != nullptr) {
        (head->*link).From = &(lock.*link).Next;
    }
    head = &lock;
}

template <auto link, class Lock>
void Unlink(Lock& lock) {
    const LockLink<Lock>& place = lock.*link;
    *place.From = place.Next;
    if (place.Next != nullptr) {
        (place.Next->*link).From = place.From;
    }
}

// Of the sessions of this process.
template <class Lock>
LockOutcome Judge(const Lock* held, const LockRequest& request) {
    for (const Lock* lock = held; lock != nullptr; lock = lock->Next) {
        if (lock->Owner == request.Session) {
            return LockOutcome::HeldAlready;
        }
        if (lock->Exclusive) {
            return LockOutcome::HeldElsewhere;
        }
    }
    return request.Exclusive && held != nullptr ? LockOutcome::HeldElsewhere : LockOutcome::Granted;
}

template <class Lock>
Lock* MakeLock(size_t bytesBehind) {
    void* block = theLockHeap.Allocate(sizeof(Lock) + bytesBehind);
    return block == nullptr ? nullptr : new (block) Lock;
}

template <class Lock>
void EndLock(Lock& lock) {
    lock.~Lock();
    theLockHeap.Free(&lock);
}

template <class Lock>
Lock* FindOwned(Lock* lock, uint32_t session) {
    while (lock != nullptr && lock->Owner != session) {
        lock = lock->Next;
    }
    return lock;
}

}  // namespace

LockOutcome LockTable::LockBytes(ByteLock& lock, uint32_t unit, bool exclusive) {
    switch (byteLocks_.Acquire(lock, unit, exclusive, 0)) {
        case ByteLockResult::Granted:
            return LockOutcome::Granted;
        case ByteLockResult::Refused:
            return LockOutcome::HeldElsewhere;
        case ByteLockResult::Failed:
            return LockOutcome::ServiceFailed;
        default:
            return LockOutcome::RefusedInside;
    }
}

LockOutcome LockTable::TakeFileLock(const LockRequest& request) {
    LockOutcome outcome = Judge(files_, request);
    if (outcome != LockOutcome::Granted) {
        return outcome;
    }
    auto* lock = MakeLock<FileLock>(0);
    if (lock == nullptr) {
        return LockOutcome::NoMemory;
    }
    outcome = LockBytes(lock->Byte, byteLocks_.Map().FileUnit(fileNameHash_), request.Exclusive);
    if (outcome != LockOutcome::Granted) {
        EndLock(*lock);
        return outcome;
    }
    lock->Table = this;
    lock->Owner = request.Session;
    lock->Exclusive = request.Exclusive;
    FileLock** end = &files_;
    while (*end != nullptr) {
        end = &(*end)->Next;
    }
    *end = lock;
    Push<&FileLock::OfSession>(request.OfSession.Files, *lock);
    Push<&FileLock::OfHandle>(request.OfHandle.Files, *lock);
    return LockOutcome::Granted;
}

LockOutcome LockTable::TakeRecordLock(const LockRequest& request, std::string_view key) {
    RecordLock* before = records_.Find(key);
    LockOutcome outcome = Judge(before, request);
    if (outcome != LockOutcome::Granted) {
        return outcome;
    }
    auto* lock = MakeLock<RecordLock>(key.size());
    if (lock == nullptr) {
        return LockOutcome::NoMemory;
    }
    const uint32_t unit = byteLocks_.Map().RecordUnit(HashRecordKey(fileNameHash_, key));
    outcome = LockBytes(lock->Byte, unit, request.Exclusive);
    if (outcome != LockOutcome::Granted) {
        EndLock(*lock);
        return outcome;
    }
    lock->Table = this;
    lock->Owner = request.Session;
    lock->Exclusive = request.Exclusive;
    lock->KeyLength = static_cast<uint32_t>(key.size());
    // Not by the hash of the lock file, in which only the end of a long key counts.
    lock->KeySpread = std::hash<std::string_view>()(key);
    if (!key.empty()) {
        std::memcpy(lock + 1, key.data(), key.size());
    }
    if (before != nullptr) {
        records_.Replace(*before, *lock);
        lock->Next = before;
    } else {
        records_.Insert(*lock);
    }
    Push<&RecordLock::OfSession>(request.OfSession.Records, *lock);
    Push<&RecordLock::OfHandle>(request.OfHandle.Records, *lock);
    return LockOutcome::Granted;
}

FileLock* LockTable::FindFileLock(uint32_t session) const {
    return FindOwned(files_, session);
}

RecordLock* LockTable::FindRecordLock(uint32_t session, std::string_view key) const {
    return FindOwned(records_.Find(key), session);
}

void LockTable::Release(FileLock& lock) {
    byteLocks_.Release(lock.Byte);
    FileLock** link = &files_;
    while (*link != &lock) {
        link = &(*link)->Next;
    }
    *link = lock.Next;
    Unlink<&FileLock::OfSession>(lock);
    Unlink<&FileLock::OfHandle>(lock);
    EndLock(lock);
}

void LockTable::Release(RecordLock& lock) {
    byteLocks_.Release(lock.Byte);
    RecordLock* latest = records_.Find(lock.Key());
    if (latest != &lock) {
        while (latest->Next != &lock) {
            latest = latest->Next;
        }
        latest->Next = lock.Next;
    } else if (lock.Next != nullptr) {
        records_.Replace(lock, *lock.Next);
    } else {
        records_.Remove(lock);
    }
    Unlink<&RecordLock::OfSession>(lock);
    Unlink<&RecordLock::OfHandle>(lock);
    EndLock(lock);
}

}  // namespace qx
