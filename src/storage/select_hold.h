// Select holds: while a handle has one on a file, the file's number of groups stays as it is.
#pragma once

#include "storage/file_call.h"

namespace qx {

// Counted per handle; the first one of the process on the file keeps the number of groups still,
// in all processes. Raises 1028, 1013, 1012, 1011.
void TakeSelectHold(FileCall& call);

// Gives up one hold of the handle; a handle that has none is left as it is. When the process's last hold on the file
// goes, an unfinished re-count starts anew.
void ReleaseSelectHold(FileCall& call);

// Gives up every hold of a handle that is being closed.
void ReleaseAllSelectHolds(FileCall& call);

}  // namespace qx
