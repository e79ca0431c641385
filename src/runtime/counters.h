// What the library counts, at the five levels at which it counts: the process, each session, each volume, each open
// file and each file handle.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace qx {

enum class Counter : uint32_t {
    // Calls of the exported functions.
    Initializes,
    Terminates,
    OpenSessions,
    CloseSessions,
    GetStatistics,
    UnlockAlls,
    Flushes,
    CreateFiles,
    DeleteFiles,
    OpenFiles,
    CloseFiles,
    GetFileHeaders,
    ReadRecords,
    ReadOnlyRecords,
    WriteRecords,
    DeleteRecords,
    ClearFiles,
    SharedLockFiles,
    ExclusiveLockFiles,
    UnlockFiles,
    SharedLockRecords,
    ExclusiveLockRecords,
    UnlockRecords,
    ReadNextIdGroups,
    ReadPreviousIdGroups,
    ClearSelects,
    GetGroupNumbers,
    LockGroups,
    UnlockGroups,
    // Live objects: the number now, its highest value, how many came and how many went.
    ActiveSessions,
    PeakActiveSessions,
    AddSessions,
    RemoveSessions,
    ActiveVolumes,
    PeakActiveVolumes,
    AddVolumes,
    ActiveFiles,
    PeakActiveFiles,
    AddFiles,
    ActiveSessionFiles,
    PeakActiveSessionFiles,
    AddSessionFiles,
    RemoveSessionFiles,
    ActiveFileHandles,
    PeakActiveFileHandles,
    // The engine's work.
    ExpandModulos,
    ContractModulos,
    ReadFrames,
    WriteFrames,
    SelectLocks,
    SelectUnlocks,
    GroupLocks,
    GroupUnlocks,
    GroupLockSuspends,
    GroupUnlockResumes,
    // Errors.
    ReadNextAllocationErrors,
    ReadAllocationErrors,
    VerifyGroupAllocationErrors,
    GfeRecordTerminationErrors,
    GfeRecordTruncatedErrors,
    GfeLinkErrors,
    ReadErrors,
    VolumeFullErrors,
    WriteErrors,
    AllocateFileDataErrors,
    AllocateLockDataErrors,
    AllocateTemporaryDataErrors,
    ClaimMutexInitSuspendErrors,
    GroupLockInitSuspendErrors,
};

inline constexpr size_t kCounterCount = static_cast<size_t>(Counter::GroupLockInitSuspendErrors) + 1;

// The counters of one level.
class CounterSet {
  public:
    void Increment(Counter counter) { At(counter).fetch_add(1, std::memory_order_relaxed); }

    // Raises the number of live objects of a kind, and its highest value. The peak is compared and stored, not
    // exchanged; two threads that raise it at once may leave the lower value.
    void Enter(Counter active, Counter peak) {
        const uint32_t now = At(active).fetch_add(1, std::memory_order_relaxed) + 1;
        if (At(peak).load(std::memory_order_relaxed) < now) {
            At(peak).store(now, std::memory_order_relaxed);
        }
    }

    void Leave(Counter active) { At(active).fetch_sub(1, std::memory_order_relaxed); }

    uint32_t Value(Counter counter) const {
        return values_[static_cast<size_t>(counter)].load(std::memory_order_relaxed);
    }

  private:
    std::atomic<uint32_t>& At(Counter counter) { return values_[static_cast<size_t>(counter)]; }

    std::array<std::atomic<uint32_t>, kCounterCount> values_{};
};

extern CounterSet theProcessCounters;

// The levels that a piece of work belongs to, so that counting it at all of them is one call. A level that the work
// does not have is null.
struct CounterLevels {
    CounterSet* Session = nullptr;
    CounterSet* Volume = nullptr;
    CounterSet* File = nullptr;
    CounterSet* Handle = nullptr;

    // A call of an exported function.
    void CountCall(Counter counter) const {
        theProcessCounters.Increment(counter);
        for (CounterSet* level : {Session, Volume, File, Handle}) {
            if (level != nullptr) {
                level->Increment(counter);
            }
        }
    }

    // Work of the engine, or an error met in it: the process, the volume and the file.
    void CountWork(Counter counter) const {
        theProcessCounters.Increment(counter);
        for (CounterSet* level : {Volume, File}) {
            if (level != nullptr) {
                level->Increment(counter);
            }
        }
    }

    // A buffer that the application's callback refused: the process and the session.
    void CountRefusal(Counter counter) const {
        theProcessCounters.Increment(counter);
        if (Session != nullptr) {
            Session->Increment(counter);
        }
    }

    // A file handle that came or went: every level but the handle's own.
    void EnterSessionFile() const;
    void LeaveSessionFile() const;
};

}  // namespace qx
