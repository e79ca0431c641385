// The file and record locks that a session holds for its application, and those among them taken through one file
// handle.
#pragma once

namespace qx {

struct FileLock;
struct RecordLock;

// The latest first.
struct HeldLocks {
    FileLock* Files = nullptr;
    RecordLock* Records = nullptr;
};

}  // namespace qx
