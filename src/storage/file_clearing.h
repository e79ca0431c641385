// Emptying a hashed file in place.
#pragma once

#include "storage/file_call.h"

namespace qx {

// Removes every record. The file shrinks to one group when its size lock is 0 and nothing holds its number of groups
// still; otherwise every group is rewritten empty. Raises 102, 1014, 1028 and what locking, reading and writing raise;
// the groups already rewritten stay empty then.
void ClearHashedFile(FileCall& call);

}  // namespace qx
