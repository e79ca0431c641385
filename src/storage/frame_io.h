// Reading and writing frames, with their checks and counts, and the rules for the file header in frame 0.
#pragma once

#include <cstdint>

#include "files/os_file.h"
#include "runtime/status.h"

namespace qx {

class OperationContext;

enum class ShortRead : uint8_t { Fail, Allow };

// Reads the first `length` bytes of a frame. False only when the file ends before them and that is allowed. Reading
// primary frame 0 refreshes the open-file record from the header. Raises 107, 1003, with the input group in detail 2.
bool ReadFrame(OperationContext& context, WhichFile file, uint32_t frame, uint32_t length, ShortRead shortRead,
               uint8_t* buffer);

// Writes the first `length` bytes of a frame. Into primary frame 0 it first puts the running values of the header.
// Raises 103, 104, 1004, with the output group in detail 2.
void WriteFrame(OperationContext& context, WhichFile file, uint32_t frame, uint32_t length, uint8_t* buffer);

// The write itself, without checks and counts of failures; what has been written is noted. For the frame that cuts a
// group after a failure, whose own failure can no longer be helped.
FileResult StoreFrame(OperationContext& context, WhichFile file, uint32_t frame, uint32_t length, uint8_t* buffer);

// Gives a file the length of `frames` frames. Raises 104.
void SetFileFrames(OperationContext& context, WhichFile file, uint32_t frames);

// Flushes a file that was written since its last flush; the overflow file only if this call attached it. Raises 104.
void FlushIfModified(OperationContext& context, WhichFile file);

// Flushes both files if the volume wants that after every update.
void FlushAfterUpdate(OperationContext& context);

enum class HeaderAccess : uint8_t { Shared, Exclusive };

// Locks the header group at least that strongly and reads the header. A shared lock is given up before an exclusive one
// is taken: another thread may come in between.
void ReadHeader(OperationContext& context, HeaderAccess access);

// Writes the header; the header group is locked exclusively.
void WriteHeader(OperationContext& context);

// Writes the header if its running values differ from the stored ones at all, also after the stored ones have been read
// again.
void WriteHeaderIfDifferent(OperationContext& context);

// The same once they differ by more than they may lag.
void RefreshHeaderIfDrifted(OperationContext& context);

}  // namespace qx
