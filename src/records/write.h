// Writing and deleting records.
#pragma once

#include <cstdint>

#include "storage/file_call.h"

namespace qx {

// Stores the bytes in `recordBuffer` under the key in `keyBuffer`. A record of the same length is overwritten where it
// stands; any other moves to the end of its group. Raises 102, 1002, 1001, and what finding, taking frames and writing
// can raise.
void WriteRecord(FileCall& call, uint32_t keyBuffer, uint32_t recordBuffer);

// False when there is no record with the key. Raises 102 and what finding and writing can raise.
bool DeleteRecord(FileCall& call, uint32_t keyBuffer);

}  // namespace qx
