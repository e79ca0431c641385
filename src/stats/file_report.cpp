#include "stats/counter_runs.h"
#include "stats/handle_numbers.h"
#include "stats/reports.h"
#include "storage/open_file.h"

namespace qx {

namespace {

void WriteLocks(ReportWriter& report, OpenFile& file) {
    const ClaimHold hold(file.Locks.Mutex);
    report.Table("File Locks", {"Session", "Exclusive"}, [&] {
        file.Locks.ForEachFileLock([&](const FileLock& lock) {
            report.Nested([&] {
                report.Number(lock.Owner);
                report.Boolean(lock.Exclusive);
            });
        });
    });
    report.Table("Record Locks", {"Session", "Key Id", "Exclusive"}, [&] {
        file.Locks.ForEachRecordLock([&](const RecordLock& lock) {
            report.Nested([&] {
                report.Number(lock.Owner);
                report.Bytes(lock.Key());
                report.Boolean(lock.Exclusive);
            });
        });
    });
}

}  // namespace

void WriteFileReport(ReportWriter& report, OpenFile& file) {
    report.Bytes("Volume Name", file.Volume.Name);
    report.Bytes("File Name", file.Name);
    WriteHandleNumbers<&FileHandle::FileLinks>(report, "Session Files", file.Handles);
    report.Number("LK File In Use Count", file.PrimaryPart.Cached.UserCount());
    report.Number("OV File In Use Count", file.OverflowPart.Cached.UserCount());
    report.Number("LK File Handle", file.PrimaryPart.Cached.Handle);
    report.Number("OV File Handle", file.OverflowPart.Cached.Handle);
    report.Boolean("Read Only", file.OpenedReadOnly);
    report.Number("Group 0 Header Size", file.Group0HeaderSize);
    report.Number("Frame Size", file.FrameSize);
    report.Number("Threshold", file.Threshold);
    report.Number("Modulo", file.Modulo);
    const RunningCounts::Observation load = file.Counts.Observe();  // what belongs together was read together
    report.Number64("Alpha", load.Alpha);
    report.Number64("New Alpha", load.NewAlpha);
    report.Number("Record Count", load.RecordCount);
    report.Number("New Record Count", load.NewRecordCount);
    report.Number("Size Lock", file.SizeLock);
    report.Number("Modulo Verified", load.ModuloVerified);
    report.Number64("Alpha Verified", load.AlphaVerified);
    report.Number("Record Count Verified", load.RecordCountVerified);
    WriteLocks(report, file);
    report.Number("Select Locks", file.SelectCount);
    const CounterValues counts = file.Counters.Values();
    WriteCounts(report, counts, {kNameCalls, kHandleCalls, kLiveSessionFiles, kWork});
    WriteErrors(report, counts, {kFileErrors, kGroupLockErrors});
}

}  // namespace qx
