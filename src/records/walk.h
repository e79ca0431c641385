// Walking a file: its keys, group by group.
#pragma once

#include <cstdint>

#include "storage/file_call.h"

namespace qx {

enum class WalkDirection : uint8_t { Forward, Backward };

// Puts the keys of the next group, or of several, into the buffer object `keyList`, each followed by the handle's
// delimiter. False when there is no further group; the walk has been ended then, as it is by every failure. Raises
// 1001, 1014, 1028, the callback's status, and what reading raises.
bool ReadKeyIdGroup(FileCall& call, uint32_t keyList, WalkDirection direction);

// Ends the handle's walk, if any.
void ClearSelect(FileCall& call);

}  // namespace qx
