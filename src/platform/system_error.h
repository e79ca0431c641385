// What the operating system answered, in the few kinds that Corvane tells apart.
#pragma once

#include <cstdint>

namespace qx {

enum class SystemError : uint8_t {
    None,
    NotFound,
    AlreadyExists,
    InUse,       // somebody's sharing mode or byte lock stands in the way
    NoHandles,   // the process or the system has no file handle to spare
    VolumeFull,  // no space, quota used up, or beyond the largest file
    EndOfFile,   // the file ended before the transfer was complete
    Other,
};

}  // namespace qx
