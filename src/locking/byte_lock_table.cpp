#include "locking/byte_lock_table.h"

#include <optional>

#include "platform/platform.h"
#include "platform/range_lock.h"

namespace qx {

namespace {

ByteLockState StateAfter(SystemError error) {
    switch (error) {
        case SystemError::None:
            return ByteLockState::Held;
        case SystemError::InUse:
            return ByteLockState::Refused;
        default:
            return ByteLockState::Failed;
    }
}

ByteLock*& EndOfQueue(ByteLock& owner) {
    ByteLock* last = &owner;
    while (last->Next != nullptr) {
        last = last->Next;
    }
    return last->Next;
}

}  // namespace

// The lock service only knows exclusive locks: who shares a unit locks the byte of its own user slot.
SystemError ByteLockTable::LockRange(uint32_t first, uint32_t length, uint32_t timeoutSeconds) const {
    return LockRangeWithin(file_.Handle, LockPosition(first), length, LockMode::Exclusive, timeoutSeconds);
}

// What the lock service says is of no use to anybody: the lock is given up all the same.
void ByteLockTable::UnlockRange(uint32_t first, uint32_t length) const {
    thePlatform.Files->Unlock(file_.Handle, LockPosition(first), length);
}

ByteLockResult ByteLockTable::Acquire(ByteLock& lock, uint32_t unit, bool exclusive, uint32_t timeoutSeconds) {
    if (!file_.Supported) {
        return ByteLockResult::Granted;
    }
    lock = {};
    lock.Offset = unit;
    lock.Exclusive = exclusive;
    Entered entered = Enter(lock);
    while (entered == Entered::TooEarly) {
        thePlatform.Threads->Yield();
        entered = Enter(lock);
    }
    if (entered == Entered::Waiting) {
        theWaitEvents.Wait(lock.Event);
        // Whoever waits behind an owner that was giving the unit up is the owner now.
        entered = lock.State == ByteLockState::Acquiring ? Entered::AsOwner : Entered::Decided;
    }
    switch (entered) {
        case Entered::AsOwner:
            return LockAsOwner(lock, timeoutSeconds);
        case Entered::Decided:
            return static_cast<ByteLockResult>(lock.State);
        default:
            return ByteLockResult::RefusedInside;
    }
}

ByteLockTable::Entered ByteLockTable::Enter(ByteLock& lock) {
    const SpinHold hold(lock_);
    ByteLock* owner = owners_.Find(lock.Offset);
    if (owner == nullptr) {
        if (IsBusyInRow(lock.Offset)) {
            return Entered::TooEarly;
        }
        const bool borrowed = IsHeldByRow(lock.Offset);
        lock.Exclusive = lock.Exclusive || borrowed;
        lock.State = borrowed ? ByteLockState::Held : ByteLockState::Acquiring;
        owners_.Insert(lock);
        return borrowed ? Entered::Decided : Entered::AsOwner;
    }
    if (lock.Exclusive && !owner->Exclusive) {
        return Entered::Refused;
    }
    const bool wait = owner->State != ByteLockState::Held;
    if (wait) {
        const std::optional<EventIndex> event = theWaitEvents.Take();
        if (!event) {
            return Entered::Refused;
        }
        lock.Event = *event;
    }
    lock.Exclusive = owner->Exclusive;
    lock.State = owner->State;
    lock.Chained = true;
    EndOfQueue(*owner) = &lock;
    return wait ? Entered::Waiting : Entered::Decided;
}

// What becomes of the owner's lock becomes of those that have queued up behind it, too.
ByteLockResult ByteLockTable::LockAsOwner(ByteLock& lock, uint32_t timeoutSeconds) {
    const SystemError error = lock.Exclusive ? LockRange(lock.Offset, Users(), timeoutSeconds)
                                             : LockRange(lock.Offset + file_.UserSlot, 1, timeoutSeconds);
    const ByteLockState state = StateAfter(error);
    const SpinHold hold(lock_);
    lock.State = state;
    ByteLock* next = lock.Next;
    if (state != ByteLockState::Held) {
        lock.Next = nullptr;
        Remove(lock);
    }
    while (next != nullptr) {
        ByteLock* woken = next;
        next = next->Next;
        woken->State = state;  // and it may be gone once it is told
        theWaitEvents.Signal(woken->Event);
    }
    return static_cast<ByteLockResult>(state);
}

// A unit that a row holds stays locked.
void ByteLockTable::Release(ByteLock& lock) {
    if (!lock.IsHeld()) {
        return;
    }
    const SpinHold hold(lock_);
    ByteLock* woken = nullptr;
    if (!lock.Chained && lock.Next == nullptr && !IsHeldByRow(lock.Offset)) {
        lock.State = ByteLockState::Releasing;
        lock_.Release();
        lock.Exclusive ? UnlockRange(lock.Offset, Users()) : UnlockRange(lock.Offset + file_.UserSlot, 1);
        lock_.Acquire();
        // The first of those that have come meanwhile locks the unit anew, and tells the others.
        woken = lock.Next;
        for (ByteLock* waiting = woken; waiting != nullptr; waiting = waiting->Next) {
            waiting->State = ByteLockState::Acquiring;
        }
    }
    Remove(lock);
    lock.State = ByteLockState::Refused;
    if (woken != nullptr) {
        theWaitEvents.Signal(woken->Event);
    }
}

// The first lock behind an owner takes its place, and what it has of the lock service.
void ByteLockTable::Remove(ByteLock& lock) {
    if (lock.Chained) {
        ByteLock** link = &owners_.Find(lock.Offset)->Next;
        while (*link != &lock) {
            link = &(*link)->Next;
        }
        *link = lock.Next;
    } else if (lock.Next != nullptr) {
        lock.Next->Chained = false;
        owners_.Replace(lock, *lock.Next);
    } else {
        owners_.Remove(lock);
    }
}

bool ByteLockTable::IsHeldByRow(uint32_t offset) const {
    for (const ByteLockRow* row = rows_; row != nullptr; row = row->Next) {
        if (row->Held.Holds(offset)) {
            return true;
        }
    }
    return false;
}

bool ByteLockTable::IsBusyInRow(uint32_t offset) const {
    for (const ByteLockRow* row = rows_; row != nullptr; row = row->Next) {
        if (row->Busy.Holds(offset)) {
            return true;
        }
    }
    return false;
}

size_t ByteLockTable::Snapshot(std::span<Entry> entries) {
    size_t count = 0;
    const SpinHold hold(lock_);
    owners_.ForEach([&](const ByteLock& owner) {
        for (const ByteLock* lock = &owner; lock != nullptr; lock = lock->Next) {
            if (count < entries.size()) {
                entries[count] = {lock->Offset, lock->Exclusive};
            }
            ++count;
        }
    });
    return count;
}

}  // namespace qx
