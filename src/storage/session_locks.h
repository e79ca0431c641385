// The locks that a session takes on files and records for its application.
#pragma once

#include <string_view>

#include "locking/lock_table.h"
#include "storage/file_call.h"

namespace qx {

// Each of these raises 1028. A lock is taken through the call's handle, and given up through any handle that the
// session has on the file; the unlocking functions are false when the session holds no such lock.
LockOutcome LockWholeFile(FileCall& call, bool exclusive);
LockOutcome LockRecord(FileCall& call, std::string_view key, bool exclusive);
bool UnlockWholeFile(FileCall& call);
bool UnlockRecord(FileCall& call, std::string_view key);

// Gives up every lock of the session. Raises 1028, with some of them given up.
void ReleaseLocksOfSession(SessionRecord& session);

// Gives up every lock that was taken through the call's handle, which is being closed.
void ReleaseLocksOfHandle(FileCall& call);

}  // namespace qx
