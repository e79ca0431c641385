// Removing a hashed file.
#pragma once

#include "storage/open_file.h"

namespace qx {

// Removes both operating-system files of a file without handles, or neither when a process has one of them open. Raises
// 1102, 102, 1029, 104.
void DeleteHashedFile(OpenFile& file);

}  // namespace qx
