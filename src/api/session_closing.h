// Closing sessions, for QXCloseSession and QXTerminate.
#pragma once

#include <cstdint>

#include "runtime/session_record.h"
#include "runtime/status.h"

namespace qx {

// Closing takes two steps. No call is inside the session.

// Gives up what the session holds on its files; not under the API mutex, as that may wait until another session gives
// a group up.
void WindUpSession(SessionRecord& session, FirstFailure& failure);

// Closes the session's files and then the session, whatever fails. Under the API mutex, or with no call inside the
// library.
void CloseSession(uint32_t handle, FirstFailure& failure);

}  // namespace qx
