// The file handle record: one for each QXOpenFile.
#pragma once

#include <cstdint>

#include "runtime/claim_mutex.h"
#include "runtime/counters.h"
#include "runtime/handle_list.h"
#include "runtime/held_locks.h"

namespace qx {

struct OpenFile;
struct RemoteFile;
struct VolumeUse;

inline constexpr uint32_t kDefaultSelectDelimiter = 0xFE;

inline constexpr uint32_t kNoWalk = 0xFFFFFFFF;

struct FileHandle {
    bool IsRemote() const { return Remote != nullptr; }

    uint32_t Session = kNoHandle;  // that opened it
    HandleLinks SessionLinks;      // in the session's file list
    HandleLinks VolumeLinks;       // in the file list of the volume use or the remote session

    // A file on a server; the handle's settings and its walk are the server's then.
    RemoteFile* Remote = nullptr;

    // A local file.
    VolumeUse* Use = nullptr;  // the session's use of the volume
    OpenFile* File = nullptr;
    HandleLinks FileLinks;  // in the open-file record's handle list
    bool ReadOnly = false;  // the handle may not change the file
    uint32_t SelectDelimiter = kDefaultSelectDelimiter;
    uint32_t SelectMinimumSize = 0;
    bool TrimLastDelimiter = false;
    bool PositionObjectInUse = false;
    uint32_t PositionObject = 0;
    ClaimMutex SelectState;  // one call on the walk at a time
    uint32_t PositionStart = kNoWalk;
    uint32_t PositionEnd = kNoWalk;
    bool WalkHasHold = false;  // the walk has taken a select hold
    uint32_t SelectCount = 0;  // select holds that the handle has taken and not given up
    HeldLocks Locks;           // those of the session that were taken through the handle; under the locks' mutexes
    CounterSet Counters;
};

}  // namespace qx
