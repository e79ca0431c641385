// The one group lock that a session may hold for its application, through QXLockGroup.
#pragma once

#include <cstdint>

#include "storage/file_call.h"

namespace qx {

// Locks a group for the session, which gives up the group that it holds for that. While it is held the primary file's
// mutex is claimed, so that no other thread of the process starts an operation on the file. The header counts of this
// process are stored and both operating-system files are closed first. Raises 1028, 1011 to 1015 and what attaching and
// storing the counts can raise; the session then holds no group.
void LockGroupForCaller(FileCall& call, uint32_t group, bool exclusive);

// The same preparation, and a select hold in place of the group lock.
void TakeSelectHoldForCaller(FileCall& call);

// Releases the group that the session holds, if any, whatever file it is on.
void ReleaseCallerGroupLock(SessionRecord& session);

// The same if it was taken through this file handle.
void ReleaseCallerGroupLockOf(SessionRecord& session, uint32_t fileHandle);

// Ends the session's record of it; the session is being closed and no call is inside it.
void EndCallerGroupLock(SessionRecord& session);

}  // namespace qx
