// Handles on files that a server has open.
#pragma once

#include <cstdint>
#include <qx.h>

#include "remote/remote_file.h"
#include "runtime/session_record.h"

namespace qx {

// Lets the server open a file and gives it a handle: a new one, or the one that the session has on the server's handle
// already if the options ask for that. Raises 1015 and what calling a server raises; the server has not kept the file
// open for this then.
uint32_t OpenRemoteHandle(const ServedName& name, SessionRecord& session, uint32_t sessionHandle,
                          const OpenOptions& options);

// Closes a handle that has been withdrawn from use, here and then on the server. The handle is gone even if that fails.
void CloseRemoteHandle(SessionRecord& session, uint32_t handle);

}  // namespace qx
