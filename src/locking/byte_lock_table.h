// The byte locks that this process has on one volume, so that its threads share the locks of the operating system: no
// byte of the lock file is locked twice by one process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "locking/byte_lock.h"
#include "locking/lock_file.h"
#include "locking/lock_tree.h"
#include "platform/system_error.h"
#include "runtime/spin_lock.h"

namespace qx {

// For every unit that is locked there is an owner in the tree, and behind it, in order of arrival, those that share its
// lock or wait for what becomes of it. A unit that a row holds needs no owner; a lock that wants it borrows it.
class ByteLockTable {
  public:
    explicit ByteLockTable(const LockFile& file) : file_(file) {}

    const LockMap& Map() const { return file_.Map; }

    // Waits for other processes up to the time limit, for threads of this one as long as they do. A request that meets
    // a lock of its own process shares it: one that asked for less becomes exclusive by that. Without byte locks there
    // is nothing to lock, and every request is granted.
    ByteLockResult Acquire(ByteLock& lock, uint32_t unit, bool exclusive, uint32_t timeoutSeconds);

    // Does nothing to a lock that is not held.
    void Release(ByteLock& lock);

    // Locks the units one after the other, in their order, each within the time limit, and holds none of them in the
    // end if one is not to be had. Rows and locks of this process share units without waiting for each other.
    ByteLockResult AcquireRow(ByteLockRow& row, LockUnits units, uint32_t timeoutSeconds);

    // Does nothing to a row that holds nothing.
    void ReleaseRow(ByteLockRow& row);

    struct Entry {
        uint32_t Offset;
        bool Exclusive;
    };

    // Copies the locks, in the order of their offsets, each owner before those behind it, as they are at one moment;
    // rows are left out. Returns how many there are, which may be more than there is room for.
    size_t Snapshot(std::span<Entry> entries);

  private:
    enum class Entered : uint8_t { AsOwner, Waiting, Decided, Refused, TooEarly };
    enum class Step : uint8_t { Done, Wait, Single, Range };

    uint32_t Users() const { return file_.Map.Users(); }

    SystemError LockRange(uint32_t first, uint32_t length, uint32_t timeoutSeconds) const;
    void UnlockRange(uint32_t first, uint32_t length) const;

    Entered Enter(ByteLock& lock);
    ByteLockResult LockAsOwner(ByteLock& lock, uint32_t timeoutSeconds);
    void Remove(ByteLock& lock);
    bool IsHeldByRow(uint32_t offset) const;
    bool IsBusyInRow(uint32_t offset) const;

    Step NextToLock(ByteLockRow& row, uint32_t end, uint32_t most);
    uint32_t EndLocking(ByteLockRow& row, bool locked);
    ByteLockResult LockNextUnit(ByteLockRow& row, uint32_t timeoutSeconds);
    Step NextToUnlock(ByteLockRow& row);
    uint32_t FreeUntil(const ByteLockRow& row, uint32_t first, uint32_t end) const;
    const ByteLockRow* OtherHolder(const ByteLockRow& row, uint32_t offset) const;

    const LockFile& file_;
    SpinLock lock_;  // never held across a wait or a call of the lock service
    LockTree<ByteLock> owners_;
    ByteLockRow* rows_ = nullptr;
};

}  // namespace qx
