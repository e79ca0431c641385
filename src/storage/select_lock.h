// The select lock of a file: the processes that keep its number of groups still share it, and who changes that number
// has it alone. Each process takes it once, for whom of its threads the file's structure mutex and select counts say.
#pragma once

#include "storage/open_file.h"

namespace qx {

// The owner of the structure mutex, with no select hold on the file, asks for the lock; it is not held yet.

// False when another process holds it. Raises 1011, 1012.
bool TryLockSelectExclusive(OpenFile& file);

// Waits up to the volume's time limit. Raises 1013, 1012, 1011.
void LockSelectShared(OpenFile& file);

void UnlockSelect(OpenFile& file);

// The lock for a change of the number of groups, for as long as the object lives.
class ExclusiveSelectLock {
  public:
    // Raises what TryLockSelectExclusive raises.
    explicit ExclusiveSelectLock(OpenFile& file) : file_(file), held_(TryLockSelectExclusive(file)) {}
    ~ExclusiveSelectLock() {
        if (held_) {
            UnlockSelect(file_);
        }
    }
    ExclusiveSelectLock(const ExclusiveSelectLock&) = delete;
    ExclusiveSelectLock& operator=(const ExclusiveSelectLock&) = delete;

    bool IsHeld() const { return held_; }

  private:
    OpenFile& file_;
    const bool held_;
};

}  // namespace qx
