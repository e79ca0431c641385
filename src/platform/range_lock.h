// Byte-range locks with a time limit.
#pragma once

#include <cstdint>

#include "platform/file_service.h"

namespace qx {

// Takes a byte-range lock, trying again every 55 milliseconds while somebody else holds a conflicting one. InUse once
// more than `timeoutSeconds` have passed; with 0 there is one attempt.
SystemError LockRangeWithin(OsHandle handle, uint64_t offset, uint32_t length, LockMode mode, uint32_t timeoutSeconds);

}  // namespace qx
