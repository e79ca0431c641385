// The rows of a byte lock table.
#include <algorithm>

#include "locking/byte_lock_table.h"
#include "platform/platform.h"

namespace qx {

// As much as is free inside the process is asked for at once, and less of it each time that another process holds
// something there, down to the one unit that has to be waited for.
ByteLockResult ByteLockTable::AcquireRow(ByteLockRow& row, LockUnits units, uint32_t timeoutSeconds) {
    if (!file_.Supported) {
        return ByteLockResult::Granted;
    }
    const uint32_t end = units.First + units.Count * Users();
    row = {};
    row.Held = {units.First, units.First};
    {
        const SpinHold hold(lock_);
        row.Next = rows_;
        rows_ = &row;
    }
    uint32_t most = units.Count;
    for (;;) {
        switch (NextToLock(row, end, most)) {
            case Step::Done:
                return ByteLockResult::Granted;
            case Step::Wait:
                thePlatform.Threads->Yield();
                continue;
            case Step::Range: {
                const SystemError error = LockRange(row.Busy.First, row.Busy.End - row.Busy.First, 0);
                const uint32_t asked = EndLocking(row, error == SystemError::None) / Users();
                if (error == SystemError::None) {
                    most = units.Count;
                    continue;
                }
                if (error != SystemError::InUse) {
                    ReleaseRow(row);
                    return ByteLockResult::Failed;
                }
                if (asked > 1) {
                    most = asked / 2;
                    continue;
                }
                break;
            }
            case Step::Single:
                break;
        }
        const ByteLockResult result = LockNextUnit(row, timeoutSeconds);
        if (result != ByteLockResult::Granted) {
            ReleaseRow(row);
            return result;
        }
        most = units.Count;
    }
}

// Up to `most` units after those that the row has are marked busy; Single when a lock of this process is in the way.
ByteLockTable::Step ByteLockTable::NextToLock(ByteLockRow& row, uint32_t end, uint32_t most) {
    const SpinHold hold(lock_);
    uint32_t& next = row.Held.End;
    while (const ByteLockRow* other = next < end ? OtherHolder(row, next) : nullptr) {
        next = std::min(end, other->Held.End);
    }
    if (next == end) {
        return Step::Done;
    }
    if (IsBusyInRow(next)) {
        return Step::Wait;
    }
    if (owners_.Find(next) != nullptr) {
        return Step::Single;
    }
    row.Busy = {next, FreeUntil(row, next, next + std::min(end - next, most * Users()))};
    return Step::Range;
}

uint32_t ByteLockTable::EndLocking(ByteLockRow& row, bool locked) {
    const SpinHold hold(lock_);
    const ByteLockRow::Range asked = row.Busy;
    row.Busy = {};
    if (locked) {
        row.Held.End = asked.End;
    }
    return asked.End - asked.First;
}

// As any lock on it would be; the row then keeps what that lock has got.
ByteLockResult ByteLockTable::LockNextUnit(ByteLockRow& row, uint32_t timeoutSeconds) {
    ByteLock unit;
    const ByteLockResult result = Acquire(unit, row.Held.End, true, timeoutSeconds);
    if (result == ByteLockResult::Granted) {
        const SpinHold hold(lock_);
        row.Held.End += Users();
    }
    Release(unit);
    return result;
}

void ByteLockTable::ReleaseRow(ByteLockRow& row) {
    while (NextToUnlock(row) != Step::Done) {
        UnlockRange(row.Busy.First, row.Busy.End - row.Busy.First);
    }
}

// Units that somebody else in this process has are theirs from now on; what lies before the next of those is marked
// busy.
ByteLockTable::Step ByteLockTable::NextToUnlock(ByteLockRow& row) {
    const SpinHold hold(lock_);
    row.Busy = {};
    uint32_t& first = row.Held.First;
    while (!row.Held.IsEmpty()) {
        if (const ByteLockRow* other = OtherHolder(row, first); other != nullptr) {
            first = std::min(row.Held.End, other->Held.End);
        } else if (owners_.Find(first) != nullptr) {
            first += Users();
        } else {
            row.Busy = {first, FreeUntil(row, first, row.Held.End)};
            first = row.Busy.End;
            return Step::Range;
        }
    }
    ByteLockRow** link = &rows_;
    while (*link != nullptr && *link != &row) {
        link = &(*link)->Next;
    }
    if (*link != nullptr) {
        *link = row.Next;
    }
    return Step::Done;
}

// Where the next unit begins that somebody else in this process has or asks for; `first` is none of those.
uint32_t ByteLockTable::FreeUntil(const ByteLockRow& row, uint32_t first, uint32_t end) const {
    if (const ByteLock* owner = owners_.FindFrom(first); owner != nullptr) {
        end = std::min(end, owner->Offset);
    }
    for (const ByteLockRow* other = rows_; other != nullptr; other = other->Next) {
        for (const ByteLockRow::Range& range : {other->Held, other->Busy}) {
            if (other != &row && !range.IsEmpty() && range.First > first) {
                end = std::min(end, range.First);
            }
        }
    }
    return end;
}

const ByteLockRow* ByteLockTable::OtherHolder(const ByteLockRow& row, uint32_t offset) const {
    for (const ByteLockRow* other = rows_; other != nullptr; other = other->Next) {
        if (other != &row && other->Held.Holds(offset)) {
            return other;
        }
    }
    return nullptr;
}

}  // namespace qx
