// File handles: opening and closing them, and flushing the files of a session.
#pragma once

#include <cstdint>
#include <qx.h>

#include "storage/file_call.h"
#include "storage/name_resolution.h"

namespace qx {

// A handle on a resolved file: a new one, or one that the session has already if the options ask for that. Raises 1015.
uint32_t OpenLocalHandle(ResolvedFile& resolved, uint32_t sessionHandle, const OpenOptions& options);

// Closing a handle on a local file takes two steps, each done whatever went wrong before; the handle has been withdrawn
// from use.

// Gives up the handle's locks and ends its walk. Not under the API mutex: the file may be another session's, with a
// group locked, for as long as the application likes, and that session may want the API mutex meanwhile. Raises what
// attaching and ending a walk raise.
void WindUpLocalHandle(FileCall& call);

// Then, under the API mutex, closes the handle, and with the last one the file. Everything is released whatever fails;
// the first failure is raised in the end.
void CloseLocalHandle(FileCall& call);

// Flushes every local file of the session that was written to, and raises the first failure in the end.
void FlushSession(SessionRecord& session);

}  // namespace qx
