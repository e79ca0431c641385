// The primary frames of groups without records.
#pragma once

#include <cstdint>

#include "storage/layout/file_header.h"

namespace qx {

// Frame 0 with its file header: no links, the end-of-group mark and fill characters. `frame` holds header.FrameSize
// bytes.
void MakeEmptyHeaderGroup(const FileHeader& header, uint8_t fill, uint8_t* frame);

// Turns such a frame 0 into the primary frame of any other group of the file.
void TurnIntoEmptyGroup(uint8_t fill, uint8_t* frame);

}  // namespace qx
