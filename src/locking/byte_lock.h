// One request for a unit of a volume's lock file, in the storage of whoever wants it.
#pragma once

#include <cstdint>

#include "locking/lock_tree.h"
#include "runtime/wait_event_pool.h"

namespace qx {

enum class ByteLockState : int32_t {
    Acquiring = 2,
    Held = 1,
    Releasing = 3,
    Refused = 0,  // and of a lock that nobody has asked for
    Failed = -1,
};

enum class ByteLockResult : int32_t {
    Granted = 1,
    Refused = 0,         // by another process, until the time limit passed
    Failed = -1,         // the lock service failed
    RefusedInside = -2,  // the process holds the unit shared and it was wanted exclusively, or there is no wait event
};

struct ByteLock {
    uint32_t Offset = 0;  // of the unit
    bool Exclusive = false;
    ByteLockState State = ByteLockState::Refused;
    bool Chained = false;  // behind the owner of the unit
    EventIndex Event = 0;  // while it waits
    ByteLock* Left = nullptr;
    ByteLock* Right = nullptr;
    ByteLock* Next = nullptr;  // of an owner, the first one behind it

    bool IsHeld() const { return State == ByteLockState::Held; }

    uint32_t Key() const { return Offset; }
    uint32_t Spread() const { return Scatter(Offset); }
};

// A request for many units side by side, exclusively.
struct ByteLockRow {
    struct Range {
        uint32_t First = 0;
        uint32_t End = 0;

        bool IsEmpty() const { return First == End; }
        bool Holds(uint32_t offset) const { return First <= offset && offset < End; }
    };

    Range Held;  // offsets whose bytes the row has, or has lent to locks of this process
    Range Busy;  // offsets that the lock service is being asked about
    ByteLockRow* Next = nullptr;
};

}  // namespace qx
