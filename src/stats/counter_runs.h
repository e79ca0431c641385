// The runs of counters that reports are put together from, each with its labels in their order.
#pragma once

#include <initializer_list>
#include <span>
#include <string_view>

#include "runtime/counters.h"
#include "stats/report_writer.h"

namespace qx {

struct CounterLabel {
    std::string_view Label;
    Counter Value;
};

using CounterRun = std::span<const CounterLabel>;

// Calls of exported functions.
inline constexpr CounterLabel kLibraryCalls[] = {
    {"Initializes", Counter::Initializes},
    {"Terminates", Counter::Terminates},
    {"Open Sessions", Counter::OpenSessions},
};

inline constexpr CounterLabel kSessionCalls[] = {
    {"Close Sessions", Counter::CloseSessions},
    {"Get Statistics", Counter::GetStatistics},
    {"Unlock Alls", Counter::UnlockAlls},
    {"Flushes", Counter::Flushes},
};

inline constexpr CounterLabel kNameCalls[] = {
    {"Create Files", Counter::CreateFiles},
    {"Delete Files", Counter::DeleteFiles},
};

inline constexpr CounterLabel kHandleCalls[] = {
    {"Open Files", Counter::OpenFiles},
    {"Close Files", Counter::CloseFiles},
    {"Get File Headers", Counter::GetFileHeaders},
    {"Read Records", Counter::ReadRecords},
    {"Read Only Records", Counter::ReadOnlyRecords},
    {"Write Records", Counter::WriteRecords},
    {"Delete Records", Counter::DeleteRecords},
    {"Clear Files", Counter::ClearFiles},
    {"Shared Lock Files", Counter::SharedLockFiles},
    {"Exclusive Lock Files", Counter::ExclusiveLockFiles},
    {"Unlock Files", Counter::UnlockFiles},
    {"Shared Lock Records", Counter::SharedLockRecords},
    {"Exclusive Lock Records", Counter::ExclusiveLockRecords},
    {"Unlock Records", Counter::UnlockRecords},
    {"Read Next Id Groups", Counter::ReadNextIdGroups},
    {"Read Previous Id Groups", Counter::ReadPreviousIdGroups},
    {"Clear Selects", Counter::ClearSelects},
    {"Get Group Numbers", Counter::GetGroupNumbers},
    {"Lock Groups", Counter::LockGroups},
    {"Unlock Groups", Counter::UnlockGroups},
};

// Live objects.
inline constexpr CounterLabel kLiveSystemFiles[] = {
    {"Peak Active File Handles", Counter::PeakActiveFileHandles},
    {"Active File Handles", Counter::ActiveFileHandles},
};

inline constexpr CounterLabel kLiveSessions[] = {
    {"Active Sessions", Counter::ActiveSessions},
    {"Peak Active Sessions", Counter::PeakActiveSessions},
    {"Add Sessions", Counter::AddSessions},
    {"Remove Sessions", Counter::RemoveSessions},
};

inline constexpr CounterLabel kLiveVolumes[] = {
    {"Active Volumes", Counter::ActiveVolumes},
    {"Peak Active Volumes", Counter::PeakActiveVolumes},
    {"Add Volumes", Counter::AddVolumes},
};

inline constexpr CounterLabel kLiveFiles[] = {
    {"Active Files", Counter::ActiveFiles},
    {"Peak Active Files", Counter::PeakActiveFiles},
    {"Add Files", Counter::AddFiles},
};

inline constexpr CounterLabel kLiveSessionFiles[] = {
    {"Active Session Files", Counter::ActiveSessionFiles},
    {"Peak Active Session Files", Counter::PeakActiveSessionFiles},
    {"Add Session Files", Counter::AddSessionFiles},
    {"Remove Session Files", Counter::RemoveSessionFiles},
};

// What the engine did.
inline constexpr CounterLabel kWork[] = {
    {"Expand Modulos", Counter::ExpandModulos},
    {"Contract Modulos", Counter::ContractModulos},
    {"Read Frames", Counter::ReadFrames},
    {"Write Frames", Counter::WriteFrames},
    {"Select Locks", Counter::SelectLocks},
    {"Select Unlocks", Counter::SelectUnlocks},
    {"Group Locks", Counter::GroupLocks},
    {"Group Unlocks", Counter::GroupUnlocks},
    {"Group Lock Suspends", Counter::GroupLockSuspends},
    {"Group Unlock Resumes", Counter::GroupUnlockResumes},
};

// Errors.
inline constexpr CounterLabel kRefusals[] = {
    {"Read Next Allocation Errors", Counter::ReadNextAllocationErrors},
    {"Read Allocation Errors", Counter::ReadAllocationErrors},
    {"Verify Group Allocation Errors", Counter::VerifyGroupAllocationErrors},
};

inline constexpr CounterLabel kFileErrors[] = {
    {"GFE Record Termination Errors", Counter::GfeRecordTerminationErrors},
    {"GFE Record Truncated Errors", Counter::GfeRecordTruncatedErrors},
    {"GFE Link Errors", Counter::GfeLinkErrors},
    {"Read Errors", Counter::ReadErrors},
    {"Volume Full Errors", Counter::VolumeFullErrors},
    {"Write Errors", Counter::WriteErrors},
};

inline constexpr CounterLabel kMemoryErrors[] = {
    {"Allocate File Data Errors", Counter::AllocateFileDataErrors},
    {"Allocate Lock Data Errors", Counter::AllocateLockDataErrors},
    {"Allocate Temporary Data Errors", Counter::AllocateTemporaryDataErrors},
    {"Claim Mutex Init Suspend Errors", Counter::ClaimMutexInitSuspendErrors},
};

inline constexpr CounterLabel kGroupLockErrors[] = {
    {"Group Lock Init Suspend Errors", Counter::GroupLockInitSuspendErrors},
};

// Writes the counts of one level.
void WriteCounts(ReportWriter& report, const CounterValues& counts, std::initializer_list<CounterRun> runs);

// The same; a count of 0 is an empty value.
void WriteErrors(ReportWriter& report, const CounterValues& counts, std::initializer_list<CounterRun> runs);

}  // namespace qx
