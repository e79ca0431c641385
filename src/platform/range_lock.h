// Byte-range locks with a time limit.
#pragma once

#include <cstdint>

#include "platform/file_service.h"

namespace qx {

// Takes a byte-range lock, trying again and again while somebody else holds a conflicting one, at least every 55
// milliseconds. InUse once more than `timeoutSeconds` have passed; with 0 there is one attempt.
SystemError LockRangeWithin(OsHandle handle, uint64_t offset, uint32_t length, LockMode mode, uint32_t timeoutSeconds);

}  // namespace qx
