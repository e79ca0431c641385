#include <vector>

#include "stats/counter_runs.h"
#include "stats/name_list.h"
#include "stats/report_field.h"
#include "stats/reports.h"
#include "volume/volume_record.h"

namespace qx {

namespace {

constexpr ReportField<VolumeRecord> kSettings[] = {
    {"Volume Name", [](ReportWriter& report, VolumeRecord& volume) { report.Bytes(volume.Name); }},
    {"File Names", [](ReportWriter& report, VolumeRecord& volume) { WriteNameList(report, volume.Files); }},
    {"Read Only", [](ReportWriter& report, VolumeRecord& volume) { report.Boolean(volume.Settings.ReadOnly); }},
    {"Flush File Size Updates",
     [](ReportWriter& report, VolumeRecord& volume) { report.Boolean(volume.Settings.FlushFileSizeUpdates); }},
    {"Flush All Updates",
     [](ReportWriter& report, VolumeRecord& volume) { report.Boolean(volume.Settings.FlushAllUpdates); }},
    {"Fill Character",
     [](ReportWriter& report, VolumeRecord& volume) { report.Number(volume.Settings.FillCharacter); }},
    {"Locks Supported", [](ReportWriter& report, VolumeRecord& volume) { report.Boolean(volume.Locks.Supported); }},
    {"Group Lock Timeout",
     [](ReportWriter& report, VolumeRecord& volume) { report.Number(volume.Settings.GroupLockTimeout); }},
};

constexpr ReportField<VolumeRecord> kLockFile[] = {
    {"Lock File Handle", [](ReportWriter& report, VolumeRecord& volume) { report.Number(volume.Locks.Handle); }},
};

using ByteLocks = std::vector<ByteLockTable::Entry, RecordHeapAllocator<ByteLockTable::Entry>>;

// Locks may come while room is made for those that were there.
ByteLocks ByteLocksOf(VolumeRecord& volume) {
    ByteLocks locks;
    for (size_t count = volume.ByteLocks.Snapshot(locks);; count = volume.ByteLocks.Snapshot(locks)) {
        const bool complete = count <= locks.size();
        locks.resize(count);
        if (complete) {
            return locks;
        }
    }
}

// Applications know the table with three columns; nothing has ever been told in the third.
void WriteByteLocks(ReportWriter& report, VolumeRecord& volume) {
    report.Table("Byte Locks", {"Offset", "Exclusive", "Count"}, [&] {
        for (const ByteLockTable::Entry& lock : ByteLocksOf(volume)) {
            report.Nested([&] {
                report.Number(lock.Offset);
                report.Boolean(lock.Exclusive);
            });
        }
    });
}

}  // namespace

void WriteVolumeReport(ReportWriter& report, VolumeRecord& volume) {
    WriteFields(report, volume, kSettings);
    WriteByteLocks(report, volume);
    WriteFields(report, volume, kLockFile);
    const CounterValues counts = volume.Counters.Values();
    WriteCounts(report, counts, {kNameCalls, kHandleCalls, kLiveFiles, kLiveSessionFiles, kWork});
    WriteErrors(report, counts, {kFileErrors, kGroupLockErrors});
}

}  // namespace qx
