// The operations of the remote protocol: byte 0 of every request.
#pragma once

#include <cstdint>

namespace qx {

enum class Opcode : uint8_t {
    Greet = 0,
    OpenSession = 1,
    CloseSession = 2,
    GetStatistics = 3,
    UnlockAll = 4,
    Flush = 5,
    CreateFile = 6,
    DeleteFile = 7,
    OpenFile = 8,
    CloseFile = 9,
    GetFileHeader = 10,
    ReadRecord = 11,
    ReadOnlyRecord = 12,
    WriteRecord = 13,
    DeleteRecord = 14,
    ClearFile = 15,
    ExclusiveLockFile = 16,
    SharedLockFile = 17,
    UnlockFile = 18,
    ExclusiveLockRecord = 19,
    SharedLockRecord = 20,
    UnlockRecord = 21,
    ReadNextKeyIdGroup = 22,
    ReadPreviousKeyIdGroup = 23,
    ClearSelect = 24,
    GetGroupNumber = 25,
    LockGroup = 26,
    UnlockGroup = 27,
    VerifyGroup = 28,
};

}  // namespace qx
