// Finding a key's group and a record in it.
#pragma once

#include <string_view>

#include "storage/operation_context.h"

namespace qx {

// Locks the group of a key's hash and puts the cursor on its first record. The number of groups that this process knows
// may be out of date: what the group's frame says decides, and the header is read again if need be. At most group 0 and
// the key's group are locked at once, group 0 first. Raises 129 when the number of groups changed again meanwhile.
void LocateAndLock(OperationContext& context, uint32_t hash, bool exclusive);

// Finds a record and keeps its group locked. True with the cursor on the first byte of its data and `start` where the
// record begins; false with the cursor on the end-of-group mark.
bool FindRecord(OperationContext& context, std::string_view key, bool exclusive, FramePlace* start);

}  // namespace qx
