#include "volume/volume_locking.h"

#include <algorithm>
#include <string>

#include "platform/platform.h"
#include "runtime/session_record.h"
#include "runtime/status.h"
#include "volume/volume_record.h"

namespace qx {

namespace {

SystemError TryLock(const LockFile& file, uint32_t offset) {
    return thePlatform.Files->TryLock(file.Handle, LockPosition(offset), 1, LockMode::Exclusive);
}

void Unlock(const LockFile& file, uint32_t offset) {
    thePlatform.Files->Unlock(file.Handle, LockPosition(offset), 1);
}

bool IsDone(FileResult result) {
    if (result == FileResult::Exhausted) {
        Raise(Code::NoFileHandle);
    }
    return result == FileResult::Done;
}

// Another process may make the file between two looks at it; it is there to stay then.
void Open(VolumeRecord& volume) {
    const std::string path = volume.Name + std::string(kLockFile);
    CachedFile& entry = volume.LockFileEntry;
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (IsDone(CacheOpenFile(path, Access::ReadWrite, Sharing::None, entry))) {
            return;
        }
        if (!IsDone(CacheFileExists(path)) && IsDone(CacheCreateFile(path, Sharing::None, entry))) {
            return;
        }
    }
    Raise(Code::LockFileFailed);
}

void Close(VolumeRecord& volume) {
    CacheCloseFile(volume.LockFileEntry);
    volume.Locks.Handle = kNoOsHandle;
}

bool IsTaken(const VolumeRecord& volume, uint32_t identifierSlot) {
    for (const VolumeUse* use = volume.Uses; use != nullptr; use = use->NextOfVolume) {
        if (use->IdentifierSlot == identifierSlot) {
            return true;
        }
    }
    return false;
}

}  // namespace

void BeginLocking(VolumeRecord& volume) {
    const std::optional<bool> wanted = volume.Settings.Locks;
    if (wanted == false) {
        return;
    }
    Open(volume);
    LockFile& locks = volume.Locks;
    locks.Handle = volume.LockFileEntry.Handle;
    for (uint32_t slot = 0; slot < locks.Map.Users(); ++slot) {
        const SystemError error = TryLock(locks, locks.Map.UserSlot(slot));
        if (error == SystemError::None) {
            locks.UserSlot = slot;
            locks.Supported = true;
            return;
        }
        if (error != SystemError::InUse) {
            Close(volume);
            locks.Supported = false;
            if (wanted == true) {
                Raise(Code::UserSlotFailed);
            }
            return;
        }
    }
    Close(volume);
    Raise(Code::NoUserSlot);
}

void EndLocking(VolumeRecord& volume) {
    LockFile& locks = volume.Locks;
    if (locks.Handle != kNoOsHandle) {
        Unlock(locks, locks.Map.UserSlot(locks.UserSlot));
        Close(volume);
    }
}

uint32_t TakeIdentifierSlot(const VolumeRecord& volume, const SessionRecord& session) {
    const LockFile& locks = volume.Locks;
    if (!locks.Supported || session.MaximumIdentifierSessions == 0) {
        return 0;
    }
    const uint32_t unit = locks.Map.IdentifierUnit(session.IdentifierBytes());
    const uint32_t end = unit + std::min(session.MaximumIdentifierSessions, locks.Map.Users());
    for (uint32_t slot = unit; slot < end; ++slot) {
        if (IsTaken(volume, slot)) {
            continue;
        }
        const SystemError error = TryLock(locks, slot);
        if (error == SystemError::None) {
            return slot;
        }
        if (error != SystemError::InUse) {
            Raise(Code::IdentifierSlotFailed);
        }
    }
    Raise(Code::TooManySessions);
}

void GiveBackIdentifierSlot(const VolumeRecord& volume, uint32_t slot) {
    if (slot != 0) {
        Unlock(volume.Locks, slot);
    }
}

}  // namespace qx
