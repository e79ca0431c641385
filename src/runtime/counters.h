// What the library counts, at the five levels at which it counts: the process, each session, each volume, each open
// file and each file handle.
//
// What happens at every turn is counted once, by the lowest level there is: calls on a handle and the engine's work for
// them, with its errors, by the handle; work that is done for no handle by the file. The levels above add up what those
// below them have counted when somebody asks, so that threads that work on different files do not count in the same
// places. All other counts are raised at each of their levels when they happen.
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
    // Those that add up.
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
    // Errors that belong to no file.
    ReadNextAllocationErrors,
    ReadAllocationErrors,
    VerifyGroupAllocationErrors,
    AllocateFileDataErrors,
    AllocateLockDataErrors,
    AllocateTemporaryDataErrors,
    ClaimMutexInitSuspendErrors,
    // The engine's work and the errors met in it, which add up.
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
    GfeRecordTerminationErrors,
    GfeRecordTruncatedErrors,
    GfeLinkErrors,
    ReadErrors,
    VolumeFullErrors,
    WriteErrors,
    GroupLockInitSuspendErrors,
};

inline constexpr size_t kCounterCount = static_cast<size_t>(Counter::GroupLockInitSuspendErrors) + 1;

constexpr bool AddsUp(Counter counter) {
    return (counter >= Counter::GetFileHeaders && counter <= Counter::UnlockGroups) ||
           counter >= Counter::ExpandModulos;
}

// The counts of a level at one time, each counter read for itself.
class CounterValues {
  public:
    uint32_t& operator[](Counter counter) { return values_[static_cast<size_t>(counter)]; }
    uint32_t operator[](Counter counter) const { return values_[static_cast<size_t>(counter)]; }

  private:
    std::array<uint32_t, kCounterCount> values_{};
};

// The counters of one level. Any thread counts at any time; which sets are below which only changes, and is only looked
// at, under the API mutex.
class CounterSet {
  public:
    CounterSet() = default;
    // What adds up goes to the levels above. Nothing is counted any more, and no level is below.
    ~CounterSet();
    CounterSet(const CounterSet&) = delete;
    CounterSet& operator=(const CounterSet&) = delete;

    // Puts the set below another one, which has to outlive it; a handle's is below that of its session and its file.
    void PutBelow(CounterSet& above);

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

    CounterValues Values() const;
    uint32_t Value(Counter counter) const { return Values()[counter]; }

  private:
    // A set's place in the list of those below another one.
    struct Place {
        CounterSet* Set = nullptr;
        CounterSet* Above = nullptr;
        Place* Next = nullptr;
        Place** Link = nullptr;  // what points to this one
    };

    std::atomic<uint32_t>& At(Counter counter) { return values_[static_cast<size_t>(counter)]; }
    uint32_t Own(Counter counter) const {
        return values_[static_cast<size_t>(counter)].load(std::memory_order_relaxed);
    }
    void AddTo(CounterValues& values) const;

    std::array<std::atomic<uint32_t>, kCounterCount> values_{};
    std::array<Place, 2> places_{};
    Place* below_ = nullptr;
};

extern CounterSet theProcessCounters;

// The levels that a piece of work belongs to. A level that the work does not have is null.
struct CounterLevels {
    CounterSet* Session = nullptr;
    CounterSet* Volume = nullptr;
    CounterSet* File = nullptr;
    CounterSet* Handle = nullptr;

    // What does not depend on a file: the process and the session.
    void CountForSession(Counter counter) const;

    // What does not add up: the process and every level that there is.
    void CountEverywhere(Counter counter) const;

    // Work of the engine, or an error met in it.
    void CountWork(Counter counter) const {
        if (CounterSet* level = Handle != nullptr ? Handle : File; level != nullptr) {
            level->Increment(counter);
        }
    }

    // A file handle that came or went: every level but the handle's own.
    void EnterSessionFile() const;
    void LeaveSessionFile() const;
};

}  // namespace qx
