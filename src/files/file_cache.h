// The operating-system files that the process has open, at most one handle for each. Those that no call uses are idle,
// and are closed when the process runs out of handles.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "files/os_file.h"
#include "runtime/claim_mutex.h"
#include "runtime/spin_lock.h"

namespace qx {

// One file that is or may be open.
//
// Calls join its users and leave them again without a lock, so that those of several threads do not queue up for it.
// Only a file that is shut has to be made ready first, by somebody who owns its mutex; and only a file without users
// can be shut.
class CachedFile {
  public:
    ClaimMutex Mutex;                           // opening, shutting and closing
    std::atomic<OsHandle> Handle{kNoOsHandle};  // changed under the mutex
    uint64_t MarkerPosition = 0;                // of the byte lock that marks the handle; 0: not marked

    bool IsOpen() const { return Handle != kNoOsHandle; }

    // One user more; false when the file is shut.
    bool Join();
    // One user less. The last one makes the file the one that has become idle most recently.
    void Leave();
    uint32_t UserCount() const { return users_ & ~kShut; }

    // By the owner of the mutex, once the file is open. AddUser does not care whether the file is shut and leaves it
    // so; Admit ends that.
    void AddUser() { ++users_; }
    void Admit();
    // By the owner of the mutex; false when there are users.
    bool Shut();

  private:
    friend struct IdleOrder;

    static constexpr uint32_t kShut = 0x8000'0000;

    std::atomic<uint32_t> users_{kShut};
    CachedFile* previous_ = nullptr;  // in the order in which they became idle
    CachedFile* next_ = nullptr;
    bool listed_ = false;
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

// An open file that may be closed while it is idle. The caller owns its mutex.
void LetCloseWhenIdle(CachedFile& entry);
// Shuts and closes such a file, which has no users. The caller owns its mutex.
void CloseShared(CachedFile& entry);

// Closes the file that has been idle longest and whose mutex is free; false when there is none.
bool CloseOneIdleFile();

// In a forked process, whose copies of the handles are closed: there are no idle files.
void ForgetIdleFiles();

}  // namespace qx
