#include <vector>

#include "stats/counter_runs.h"
#include "stats/name_list.h"
#include "stats/reports.h"
#include "volume/volume_record.h"

namespace qx {

namespace {

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
    report.Bytes("Volume Name", volume.Name);
    WriteNameList(report, "File Names", volume.Files);
    report.Boolean("Read Only", volume.Settings.ReadOnly);
    report.Boolean("Flush File Size Updates", volume.Settings.FlushFileSizeUpdates);
    report.Boolean("Flush All Updates", volume.Settings.FlushAllUpdates);
    report.Number("Fill Character", volume.Settings.FillCharacter);
    report.Boolean("Locks Supported", volume.Locks.Supported);
    report.Number("Group Lock Timeout", volume.Settings.GroupLockTimeout);
    WriteByteLocks(report, volume);
    report.Number("Lock File Handle", volume.Locks.Handle);
    const CounterValues counts = volume.Counters.Values();
    WriteCounts(report, counts, {kNameCalls, kHandleCalls, kLiveFiles, kLiveSessionFiles, kWork});
    WriteErrors(report, counts, {kFileErrors, kGroupLockErrors});
}

}  // namespace qx
