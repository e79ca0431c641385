#include "storage/layout/empty_group.h"

#include <algorithm>
#include <cstring>

#include "storage/layout/frame_header.h"

namespace qx {

void MakeEmptyHeaderGroup(const FileHeader& header, uint8_t fill, uint8_t* frame) {
    std::memset(frame, fill, header.FrameSize);
    SetForwardLink(frame, 0);
    SetSkipLink(frame, 0);
    EncodeFileHeader(header, frame);
    frame[header.HeaderLength] = kEndOfGroup;
}

// The links and the modulo stay: they are a primary frame's links and modulo stamp.
void TurnIntoEmptyGroup(uint8_t fill, uint8_t* frame) {
    const uint8_t headerLength = frame[0];
    frame[0] = kPrimaryHeaderLength;
    frame[kPrimaryHeaderLength] = kEndOfGroup;
    std::fill(frame + kPrimaryHeaderLength + 1, frame + headerLength + 1, fill);
}

}  // namespace qx
