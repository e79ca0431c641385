// Making a hashed file.
#pragma once

#include "runtime/counters.h"
#include "storage/layout/file_header.h"
#include "storage/open_file.h"

namespace qx {

// Lays out the primary file with every group empty, and an empty overflow file; both are closed again. The file has no
// handle. A header that cannot hold the frame size is refused with 1008. Raises 1102, 102, 1008, 1029, 1026, 1027, 103,
// 104, 1014; no primary file is left behind then.
void CreateHashedFile(OpenFile& file, const FileHeader& header, const CounterLevels& levels);

}  // namespace qx
