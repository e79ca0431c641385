// Volumes: the directories that hold hashed files.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "files/file_cache.h"
#include "locking/byte_lock_table.h"
#include "locking/lock_file.h"
#include "runtime/counters.h"
#include "runtime/handle_list.h"
#include "runtime/record_heap.h"
#include "volume/parameter_text.h"

namespace qx {

struct OpenFile;
struct SessionRecord;
struct VolumeUse;

// Names in their order: bytes first, unsigned, then the shorter first.
template <class Record>
using NameTree =
    std::map<std::string_view, Record*, std::less<>, RecordHeapAllocator<std::pair<const std::string_view, Record*>>>;

// One for each volume that the process has used; kept until the library stops.
struct VolumeRecord {
    explicit VolumeRecord(std::string_view name) : Name(name) { Counters.PutBelow(theProcessCounters); }

    const std::string Name;  // the directory's canonical path, with a separator at its end
    VolumeSettings Settings;
    LockFile Locks;            // filled in when the volume is first used, and again after it was used by nobody
    CachedFile LockFileEntry;  // the lock file, open while the volume is in use
    ByteLockTable ByteLocks{Locks};
    VolumeUse* Uses = nullptr;  // the sessions that use the volume
    NameTree<OpenFile> Files;
    CounterSet Counters;
};

// A session's use of a volume; it lives while the session has files there.
struct VolumeUse {
    uint32_t Session = kNoHandle;
    VolumeRecord* Volume = nullptr;
    VolumeUse* NextOfSession = nullptr;
    VolumeUse* NextOfVolume = nullptr;
    HandleList Files;             // the session's file handles on this volume
    uint32_t IdentifierSlot = 0;  // lock offset of the session's identifier slot; 0: none
};

// The process's volumes; changed only under the API mutex.
NameTree<VolumeRecord>& Volumes();

// The record of a volume, made and its parameters read if this is its first use in the process. Directories whose names
// are shorter than `rootLength` are not searched for them. Raises 1015, 1029, 107.
VolumeRecord& VolumeOf(std::string_view name, size_t rootLength);

// The session's use of the volume, begun if there is none. Raises 1015, 1019, and 1020, 1021, 1022, 1024, 1025, 1029
// for the lock file and the slots in it.
VolumeUse& UseVolume(SessionRecord& session, uint32_t sessionHandle, VolumeRecord& volume);

// Ends the use if the session has no file on the volume any more.
void LeaveVolume(SessionRecord& session, VolumeUse& use);

// Frees every volume; no session may be using one.
void ForgetVolumes();

}  // namespace qx
