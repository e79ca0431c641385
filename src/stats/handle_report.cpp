#include "remote/remote_file.h"
#include "stats/counter_runs.h"
#include "stats/reports.h"
#include "storage/file_handle.h"
#include "storage/open_file.h"

namespace qx {

namespace {

// A handle has one file lock at most.
void WriteLocks(ReportWriter& report, FileHandle& handle) {
    const ClaimHold hold(handle.File->Locks.Mutex);
    report.List("File Locks Exclusive", [&] {
        for (const FileLock* lock = handle.Locks.Files; lock != nullptr; lock = lock->OfHandle.Next) {
            report.Boolean(lock->Exclusive);
            report.End();
        }
    });
    report.Table("Record Locks", {"Key Id", "Exclusive"}, [&] {
        for (const RecordLock* lock = handle.Locks.Records; lock != nullptr; lock = lock->OfHandle.Next) {
            report.Nested([&] {
                report.Bytes(lock->Key());
                report.Boolean(lock->Exclusive);
            });
        }
    });
}

void WriteWalk(ReportWriter& report, FileHandle& handle) {
    const ClaimHold hold(handle.SelectState);
    report.Number("Position Start", handle.PositionStart);
    report.Number("Position End", handle.PositionEnd);
}

}  // namespace

void WriteHandleReport(ReportWriter& report, FileHandle& handle) {
    report.Number("Session", handle.Session);
    report.Boolean("Remote", handle.IsRemote());
    if (handle.IsRemote()) {
        report.Bytes("Server Name", handle.Remote->Session.Connection.Name);
        return;
    }
    report.Bytes("Volume Name", handle.File->Volume.Name);
    report.Bytes("File Name", handle.File->Name);
    report.Boolean("Read Only", handle.ReadOnly);
    report.Number("Select Delimiter", handle.SelectDelimiter);
    report.Number("Select Minimum Size", handle.SelectMinimumSize);
    WriteLocks(report, handle);
    WriteWalk(report, handle);
    WriteCounts(report, handle.Counters.Values(), {kHandleCalls});
}

}  // namespace qx
