// Where a handle's walk over the groups stands, and the end of a walk.
#pragma once

#include "storage/file_call.h"

namespace qx {

// The position may live in a buffer object of the application: nothing, or two little-endian 32-bit numbers. Loading
// raises the callback's status, or 160 for an object of any other length. Storing raises the same.
void LoadPosition(FileCall& call);
void StorePosition(FileCall& call);

inline bool WalkIsUnderWay(const FileCall& call) {
    return call.Handle->PositionStart != kNoWalk;
}

// Ends the handle's walk: the position is cleared, the header is written if the re-count made by the walk asks for it,
// and the walk's select hold is given up, which happens whatever fails. The file is attached and the handle's walk
// state claimed by the caller. Raises 1014 and what reading and writing the header raise.
void EndWalk(FileCall& call);

// Ends the handle's walk if there is one, for a handle that is being closed or told to.
void EndOpenWalk(FileCall& call);

}  // namespace qx
