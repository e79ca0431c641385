// A volume's lock file, through whose bytes the processes that use the volume keep out of each other's way.
#pragma once

#include <cstdint>

#include "locking/lock_offsets.h"
#include "platform/file_service.h"

namespace qx {

// Filled in by whoever opens the file, before anything is locked. The file is never read or written.
struct LockFile {
    OsHandle Handle = kNoOsHandle;
    bool Supported = false;  // byte locks are in force; without them every lock ends with the process
    uint32_t UserSlot = 0;   // this process's
    LockMap Map;
};

}  // namespace qx
