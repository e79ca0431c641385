// Reading records.
#pragma once

#include <cstdint>

#include "storage/file_call.h"

namespace qx {

// Hands the data of the record with the key in `keyBuffer` over in `recordBuffer`. False when there is no such record.
// Raises 1002 when it is larger than a limit, 160 when the callback refuses the buffer, and what finding can raise.
bool ReadRecord(FileCall& call, uint32_t keyBuffer, uint32_t recordBuffer);

// The group of a key under the number of groups that this process knows; no group is read.
uint32_t GroupNumberOfKey(FileCall& call, uint32_t keyBuffer);

}  // namespace qx
