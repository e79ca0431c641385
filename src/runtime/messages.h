// The message table: one text for every status code.
#pragma once

#include <cstdint>
#include <qx.h>

namespace qx {

// Writes the message for `status` with its numbers filled in and a terminating zero. Returns the characters written
// without that zero; 0 when the code has no message or `size` does not hold it.
uint32_t FormatMessage(const StatusRecord& status, uint32_t size, char* buffer);

}  // namespace qx
