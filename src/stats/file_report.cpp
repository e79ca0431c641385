#include "stats/counter_runs.h"
#include "stats/handle_numbers.h"
#include "stats/report_field.h"
#include "stats/reports.h"
#include "storage/open_file.h"

namespace qx {

namespace {

// The geometry is there once the header has been loaded.
uint32_t IfLoaded(const OpenFile& file, uint32_t OpenFile::*field) {
    return file.HeaderIsLoaded() ? file.*field : 0;
}

constexpr ReportField<OpenFile> kFile[] = {
    {"Volume Name", [](ReportWriter& report, OpenFile& file) { report.Bytes(file.Volume.Name); }},
    {"File Name", [](ReportWriter& report, OpenFile& file) { report.Bytes(file.Name); }},
    {"Session Files",
     [](ReportWriter& report, OpenFile& file) { WriteHandleNumbers<&FileHandle::FileLinks>(report, file.Handles); }},
    {"LK File In Use Count",
     [](ReportWriter& report, OpenFile& file) { report.Number(file.PrimaryPart.Cached.UserCount()); }},
    {"OV File In Use Count",
     [](ReportWriter& report, OpenFile& file) { report.Number(file.OverflowPart.Cached.UserCount()); }},
    {"LK File Handle", [](ReportWriter& report, OpenFile& file) { report.Number(file.PrimaryPart.Cached.Handle); }},
    {"OV File Handle", [](ReportWriter& report, OpenFile& file) { report.Number(file.OverflowPart.Cached.Handle); }},
    {"Read Only", [](ReportWriter& report, OpenFile& file) { report.Boolean(file.OpenedReadOnly); }},
    {"Group 0 Header Size", [](ReportWriter& report, OpenFile& file) { report.Number(file.Group0HeaderSize); }},
    {"Frame Size", [](ReportWriter& report, OpenFile& file) { report.Number(IfLoaded(file, &OpenFile::FrameSize)); }},
    {"Threshold", [](ReportWriter& report, OpenFile& file) { report.Number(IfLoaded(file, &OpenFile::Threshold)); }},
    {"Modulo", [](ReportWriter& report, OpenFile& file) { report.Number(file.Modulo); }},
};

// What belongs together was read together.
struct Load {
    RunningCounts::Observation Counts;
    uint32_t SizeLock;
};

constexpr ReportField<Load> kLoad[] = {
    {"Alpha", [](ReportWriter& report, Load& load) { report.Number64(load.Counts.Alpha); }},
    {"New Alpha", [](ReportWriter& report, Load& load) { report.Number64(load.Counts.NewAlpha); }},
    {"Record Count", [](ReportWriter& report, Load& load) { report.Number(load.Counts.RecordCount); }},
    {"New Record Count", [](ReportWriter& report, Load& load) { report.Number(load.Counts.NewRecordCount); }},
    {"Size Lock", [](ReportWriter& report, Load& load) { report.Number(load.SizeLock); }},
    {"Modulo Verified", [](ReportWriter& report, Load& load) { report.Number(load.Counts.ModuloVerified); }},
    {"Alpha Verified", [](ReportWriter& report, Load& load) { report.Number64(load.Counts.AlphaVerified); }},
    {"Record Count Verified", [](ReportWriter& report, Load& load) { report.Number(load.Counts.RecordCountVerified); }},
};

constexpr ReportField<OpenFile> kSelect[] = {
    {"Select Locks", [](ReportWriter& report, OpenFile& file) { report.Number(file.SelectCount); }},
};

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
    WriteFields(report, file, kFile);
    Load load{file.Counts.Observe(), file.SizeLock};
    WriteFields(report, load, kLoad);
    WriteLocks(report, file);
    WriteFields(report, file, kSelect);
    const CounterValues counts = file.Counters.Values();
    WriteCounts(report, counts, {kNameCalls, kHandleCalls, kLiveSessionFiles, kWork});
    WriteErrors(report, counts, {kFileErrors, kGroupLockErrors});
}

}  // namespace qx
