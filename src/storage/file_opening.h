// File handles: opening and closing them, and flushing the files of a session.
#pragma once

#include <cstdint>
#include <qx.h>

#include "storage/file_call.h"
#include "storage/name_resolution.h"

namespace qx {

// A handle on a resolved file: a new one, or one that the session has already if the options ask for that. Raises 1015.
uint32_t OpenLocalHandle(ResolvedFile& resolved, uint32_t sessionHandle, const OpenOptions& options);

// Closes a handle on a local file that has been withdrawn from use and with the last one the file. Everything is
// released whatever fails; the first failure is raised in the end.
void CloseLocalHandle(FileCall& call);

// Flushes every local file of the session that was written to, and raises the first failure in the end.
void FlushSession(SessionRecord& session);

}  // namespace qx
