#include "remote/remote_file.h"
#include "stats/counter_runs.h"
#include "stats/report_field.h"
#include "stats/reports.h"
#include "storage/file_handle.h"
#include "storage/open_file.h"

namespace qx {

namespace {

constexpr ReportField<FileHandle> kAnyHandle[] = {
    {"Session", [](ReportWriter& report, FileHandle& handle) { report.Number(handle.Session); }},
    {"Remote", [](ReportWriter& report, FileHandle& handle) { report.Boolean(handle.IsRemote()); }},
};

constexpr ReportField<FileHandle> kRemoteHandle[] = {
    {"Server Name",
     [](ReportWriter& report, FileHandle& handle) { report.Bytes(handle.Remote->Session.Connection.Name); }},
};

constexpr ReportField<FileHandle> kLocalHandle[] = {
    {"Volume Name", [](ReportWriter& report, FileHandle& handle) { report.Bytes(handle.File->Volume.Name); }},
    {"File Name", [](ReportWriter& report, FileHandle& handle) { report.Bytes(handle.File->Name); }},
    {"Read Only", [](ReportWriter& report, FileHandle& handle) { report.Boolean(handle.ReadOnly); }},
    {"Select Delimiter", [](ReportWriter& report, FileHandle& handle) { report.Number(handle.SelectDelimiter); }},
    {"Select Minimum Size", [](ReportWriter& report, FileHandle& handle) { report.Number(handle.SelectMinimumSize); }},
};

constexpr ReportField<FileHandle> kWalk[] = {
    {"Position Start", [](ReportWriter& report, FileHandle& handle) { report.Number(handle.PositionStart); }},
    {"Position End", [](ReportWriter& report, FileHandle& handle) { report.Number(handle.PositionEnd); }},
};

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
    WriteFields(report, handle, kWalk);
}

}  // namespace

void WriteHandleReport(ReportWriter& report, FileHandle& handle) {
    WriteFields(report, handle, kAnyHandle);
    if (handle.IsRemote()) {
        WriteFields(report, handle, kRemoteHandle);
        return;
    }
    WriteFields(report, handle, kLocalHandle);
    WriteLocks(report, handle);
    WriteWalk(report, handle);
    WriteCounts(report, handle.Counters.Values(), {kHandleCalls});
}

}  // namespace qx
