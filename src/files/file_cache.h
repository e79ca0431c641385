// The operating-system files that the process has open, at most one handle for each, and the idle ones among them,
// which are closed when the process runs out of handles.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "files/os_file.h"
#include "runtime/claim_mutex.h"
#include "runtime/spin_lock.h"

namespace qx {

// One file that is or may be open. Its owner counts the calls that use it; an open file that no call uses is idle.
struct CachedFile {
    ClaimMutex Mutex;  // attaching, detaching and closing
    CachedFile* IdlePrevious = nullptr;
    CachedFile* IdleNext = nullptr;
    std::atomic<OsHandle> Handle{kNoOsHandle};  // changed under the mutex

    uint64_t MarkerPosition = 0;  // of the byte lock that marks the handle; 0: not marked

    bool IsOpen() const { return Handle != kNoOsHandle; }
};

// Each of these closes idle files and tries again while the process has no handle to spare.
FileResult CacheFileExists(std::string_view name);
FileResult CacheCreateFile(std::string_view name, Sharing sharing, CachedFile& entry);
FileResult CacheOpenFile(std::string_view name, Access access, Sharing sharing, CachedFile& entry);
FileResult CacheClaimForDelete(std::string_view name, OsHandle* claim);
FileResult CacheDeleteFile(std::string_view name);

// Locks one byte of an open file, from now until it is closed, as a mark of the process with this user slot. Failed
// when somebody else has the byte. A handle that is only for reading can but share it.
FileResult TakeUserSlotMarker(CachedFile& entry, uint32_t userSlot, Access access);

void CacheCloseFile(CachedFile& entry);

// The caller owns the entry's mutex.
void IdleListAdd(CachedFile& entry);
void IdleListRemove(CachedFile& entry);

// Closes the file that has been idle longest and whose mutex is free; false when there is none.
bool CloseOneIdleFile();

// In a forked process, whose copies of the handles are closed: there are no idle files.
void ForgetIdleFiles();

}  // namespace qx
