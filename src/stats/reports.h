// The reports on what the library does: the settings, lists and counters of one level each. All of them are written
// under the API mutex, and raise what the writer raises.
#pragma once

#include <cstdint>

#include "stats/report_writer.h"

namespace qx {

struct FileHandle;
struct OpenFile;
struct SessionRecord;
struct VolumeRecord;

void WriteProcessReport(ReportWriter& report);

void WriteVolumeReport(ReportWriter& report, VolumeRecord& volume);

// Raises 1028.
void WriteFileReport(ReportWriter& report, OpenFile& file);

// Raises 1028.
void WriteSessionReport(ReportWriter& report, SessionRecord& session);

// Raises 1028.
void WriteHandleReport(ReportWriter& report, FileHandle& handle);

void WriteServersReport(ReportWriter& report);

}  // namespace qx
