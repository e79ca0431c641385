// The header that begins every frame of a group.
//
//   offset  width
//        0      1  header length: 22, 26 or 32 in primary frame 0 (which goes on as the file header), 13 in other
//        primary
//                  frames, 14 in overflow frames
//        1      4  forward link: the group's next overflow frame, 0 for none
//        5      4  skip link: where the last record whose data begins in this frame ends, if that lies beyond the next
//                  frame; otherwise the forward link
//        9      4  primary frames: the number of groups with which the group's records were last distributed; overflow
//                  frames: the group that owns the frame
//       13      1  overflow frames only: reserved
#pragma once

#include <cstdint>

#include "storage/layout/little_endian.h"

namespace qx {

inline constexpr uint8_t kPrimaryHeaderLength = 13;
inline constexpr uint8_t kOverflowHeaderLength = 14;

inline constexpr uint8_t kEndOfGroup = 0x80;
inline constexpr uint8_t kRecordTerminator = 0xFF;

inline uint32_t ForwardLink(const uint8_t* frame) {
    return LoadLittleEndian<uint32_t>(frame + 1);
}
inline void SetForwardLink(uint8_t* frame, uint32_t link) {
    StoreLittleEndian(frame + 1, link);
}

inline uint32_t SkipLink(const uint8_t* frame) {
    return LoadLittleEndian<uint32_t>(frame + 5);
}
inline void SetSkipLink(uint8_t* frame, uint32_t link) {
    StoreLittleEndian(frame + 5, link);
}

inline constexpr uint32_t kModuloStampOffset = 9;

inline uint32_t ModuloStamp(const uint8_t* frame) {
    return LoadLittleEndian<uint32_t>(frame + kModuloStampOffset);
}
inline void SetModuloStamp(uint8_t* frame, uint32_t modulo) {
    StoreLittleEndian(frame + kModuloStampOffset, modulo);
}

inline uint32_t OwnerGroup(const uint8_t* frame) {
    return LoadLittleEndian<uint32_t>(frame + 9);
}
inline void SetOwnerGroup(uint8_t* frame, uint32_t group) {
    StoreLittleEndian(frame + 9, group);
}

// The header of an overflow frame that has just been taken.
inline void StartOverflowFrame(uint8_t* frame, uint32_t owner) {
    frame[0] = kOverflowHeaderLength;
    SetForwardLink(frame, 0);
    SetSkipLink(frame, 0);
    SetOwnerGroup(frame, owner);
    frame[13] = 0;
}

}  // namespace qx
