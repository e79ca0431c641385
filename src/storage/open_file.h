// The open-file record: one for each hashed file that the process works on, shared by every handle on it.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "files/file_cache.h"
#include "locking/group_lock_queue.h"
#include "locking/lock_table.h"
#include "runtime/claim_mutex.h"
#include "runtime/counters.h"
#include "runtime/handle_list.h"
#include "runtime/status.h"
#include "storage/running_counts.h"
#include "volume/volume_record.h"

namespace qx {

// One of the two operating-system files.
struct FilePart {
    CachedFile Cached;                 // the primary file is shut while its header is not loaded
    std::atomic<bool> Written{false};  // written, or changed in length, since the last flush
};

struct OpenFile {
    OpenFile(std::string_view name, VolumeRecord& volume) : Name(name), Volume(volume), NameHash(HashFileName(name)) {
        Counters.PutBelow(volume.Counters);
    }

    FilePart& Part(WhichFile file) { return file == WhichFile::Primary ? PrimaryPart : OverflowPart; }
    std::string PathOf(WhichFile file) const;

    bool HeaderIsLoaded() const { return Group0HeaderSize.load(std::memory_order_acquire) != 0; }

    // Whether the handle's owner may change the file.
    bool MayWrite(bool handleIsReadOnly) const { return !handleIsReadOnly && !OpenedReadOnly.load(); }

    // How much of a frame a group counts in the file's load.
    uint64_t Capped(uint64_t groupBytes) const {
        const uint32_t frameSize = FrameSize.load(std::memory_order_relaxed);
        return groupBytes < frameSize ? groupBytes : frameSize;
    }

    const std::string Name;  // within the volume
    VolumeRecord& Volume;
    const uint32_t NameHash;  // where the file's locks lie in the lock file
    HandleList Handles;       // of all sessions

    RunningCounts Counts;
    GroupLockQueue GroupLocks;
    LockTable Locks{Volume.ByteLocks, NameHash};  // of applications

    ClaimMutex StructureMutex;             // the select counts; also taken by clearing and by changes of the modulo
    std::atomic<uint32_t> SelectCount{0};  // handles that hold the number of groups still, and clears under way
    ByteLock SelectLock;                   // the process's share of that in the lock file; under the structure mutex

    FilePart PrimaryPart;
    FilePart OverflowPart;
    std::atomic<bool> OpenedReadOnly{false};  // the primary file could only be opened for reading

    // The file header as last loaded, under the primary file's mutex. FrameSize and the thresholds never change.
    std::atomic<uint32_t> Group0HeaderSize{0};  // 0: not loaded
    std::atomic<uint32_t> FrameSize{0};
    std::atomic<uint32_t> Threshold{0};
    std::atomic<uint32_t> ThresholdBytes{0};  // load above which the file grows, bytes a group
    std::atomic<uint32_t> MergeBytes{0};      // load below which the file shrinks, bytes a group
    std::atomic<uint32_t> Modulo{0};
    std::atomic<uint32_t> SizeLock{0};

    // Frames that the overflow file is known to have held; saves asking for its length at every step along a chain.
    std::atomic<uint32_t> OverflowFramesSeen{0};

    std::atomic<uint32_t> CallerLocks{0};  // sessions that hold a group for their application, or are about to

    bool IsQueued = false;  // on the resize queue, which guards both
    OpenFile* NextQueued = nullptr;

    CounterSet Counters;
};

}  // namespace qx
