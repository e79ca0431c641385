// The locks of applications on one file: on the file as a whole and on its records. The library's own work never asks
// for them; they only keep applications that ask for them apart.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "locking/byte_lock_table.h"
#include "locking/lock_tree.h"
#include "runtime/claim_mutex.h"
#include "runtime/held_locks.h"

namespace qx {

class LockTable;

// A lock's place in a list that it can be taken out of without a search.
template <class Lock>
struct LockLink {
    Lock** From = nullptr;
    Lock* Next = nullptr;
};

// Held by one session, among others on the same file.
struct FileLock {
    LockTable* Table = nullptr;
    FileLock* Next = nullptr;
    LockLink<FileLock> OfSession;
    LockLink<FileLock> OfHandle;
    uint32_t Owner = 0;  // handle of the session
    bool Exclusive = false;
    ByteLock Byte;
};

// Held by one session on one key, whose bytes follow the record.
struct RecordLock {
    LockTable* Table = nullptr;
    RecordLock* Left = nullptr;
    RecordLock* Right = nullptr;
    RecordLock* Next = nullptr;  // on the same key, taken before
    LockLink<RecordLock> OfSession;
    LockLink<RecordLock> OfHandle;
    uint32_t Owner = 0;  // handle of the session
    uint32_t KeyLength = 0;
    size_t KeySpread = 0;
    bool Exclusive = false;
    ByteLock Byte;

    std::string_view Key() const { return {reinterpret_cast<const char*>(this + 1), KeyLength}; }
    size_t Spread() const { return KeySpread; }
};

enum class LockOutcome : uint8_t {
    Granted,
    HeldAlready,    // by the session that asks, in whatever mode
    HeldElsewhere,  // by another session or process, one of the two exclusively
    NoMemory,
    ServiceFailed,
    RefusedInside,  // as a byte lock can be
};

// Who wants a lock.
struct LockRequest {
    uint32_t Session;  // handle
    HeldLocks& OfSession;
    HeldLocks& OfHandle;
    bool Exclusive;
};

// Sessions of this process are kept apart by the lists here, other processes by a byte lock for each lock. Nobody waits
// for a lock. Everything is done by the owner of the mutex, who has claimed that of the session before, unless it only
// looks on.
class LockTable {
  public:
    LockTable(ByteLockTable& byteLocks, uint32_t fileNameHash) : byteLocks_(byteLocks), fileNameHash_(fileNameHash) {}
    LockTable(const LockTable&) = delete;
    LockTable& operator=(const LockTable&) = delete;

    ClaimMutex Mutex;

    LockOutcome TakeFileLock(const LockRequest& request);
    LockOutcome TakeRecordLock(const LockRequest& request, std::string_view key);

    // Null when the session holds none.
    FileLock* FindFileLock(uint32_t session) const;
    RecordLock* FindRecordLock(uint32_t session, std::string_view key) const;

    // Gives the lock up and ends its record.
    void Release(FileLock& lock);
    void Release(RecordLock& lock);

    // In the order in which they were taken.
    template <class Visit>
    void ForEachFileLock(Visit&& visit) const {
        for (const FileLock* lock = files_; lock != nullptr; lock = lock->Next) {
            visit(*lock);
        }
    }

    // In the order of the keys; of those on one key, the latest first.
    template <class Visit>
    void ForEachRecordLock(Visit&& visit) const {
        records_.ForEach([&](const RecordLock& latest) {
            for (const RecordLock* lock = &latest; lock != nullptr; lock = lock->Next) {
                visit(*lock);
            }
        });
    }

  private:
    LockOutcome LockBytes(ByteLock& lock, uint32_t unit, bool exclusive);

    ByteLockTable& byteLocks_;
    const uint32_t fileNameHash_;
    FileLock* files_ = nullptr;
    LockTree<RecordLock> records_;  // for each key, the latest lock on it
};

}  // namespace qx
