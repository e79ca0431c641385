// Closing sessions and files, for QXCloseFile, QXCloseSession and QXTerminate.
#pragma once

#include <cstdint>

#include "runtime/session_record.h"
#include "storage/file_handle.h"

namespace qx {

// Closes the session's files and then the session, whatever fails; the first failure is raised in the end. Under the
// API mutex, or with no call inside the library; no call is inside the session.
void CloseSession(uint32_t handle);

// Closes a file handle that has been withdrawn from use; raises what went wrong when that is done.
void CloseFileOf(SessionRecord& session, uint32_t handle, FileHandle& record);

}  // namespace qx
