// The file header: the first 22, 26 or 32 bytes of primary frame 0.
//
//   offset  width  in lengths
//        0      1  all         header length
//        1      4  all         forward link of group 0
//        5      4  all         skip link of group 0
//        9      4  all         Modulo: number of groups
//       13      2  all         FrameSize, low 16 bits
//       15      4  all         Alpha, low 32 bits
//       19      1  all         Threshold: load at which a group is added, in 256ths of a frame
//       20      2  all         SizeLock
//       22      4  26, 32      RecordCount
//       26      2  32          FrameSize, high 16 bits
//       28      4  32          Alpha, high 32 bits
#pragma once

#include <cstdint>

namespace qx {

inline constexpr uint8_t kHeaderLength100 = 22;
inline constexpr uint8_t kHeaderLength110 = 26;
inline constexpr uint8_t kHeaderLength120 = 32;
inline constexpr uint32_t kLongestFileHeader = 32;

inline constexpr uint32_t kVersion100 = 100;
inline constexpr uint32_t kVersion110 = 110;
inline constexpr uint32_t kVersion120 = 120;

inline constexpr uint32_t kSmallestCreatedFrame = 256;
inline constexpr uint32_t kLargestFrame110 = 65535;
inline constexpr uint32_t kSmallestThreshold = 25;
inline constexpr uint32_t kLargestThreshold = 255;

struct FileHeader {
    uint8_t HeaderLength = kHeaderLength120;
    uint32_t Modulo = 1;
    uint32_t FrameSize = 1024;
    uint64_t Alpha = 0;
    uint8_t Threshold = 204;
    uint16_t SizeLock = 0;
    uint32_t RecordCount = 0;
};

constexpr bool IsFileHeaderLength(uint8_t length) {
    return length == kHeaderLength100 || length == kHeaderLength110 || length == kHeaderLength120;
}

constexpr bool HasRecordCount(uint32_t headerLength) {
    return headerLength >= kHeaderLength110;
}
constexpr bool HasHighParts(uint32_t headerLength) {
    return headerLength >= kHeaderLength120;
}

// 100, 110 or 120; 0 for a length that no header has.
constexpr uint32_t VersionOf(uint32_t headerLength) {
    return headerLength == kHeaderLength120   ? kVersion120
           : headerLength == kHeaderLength110 ? kVersion110
           : headerLength == kHeaderLength100 ? kVersion100
                                              : 0;
}

// Decodes 32 bytes that begin with a header length; Alpha is clamped to what the groups can hold.
FileHeader DecodeFileHeader(const uint8_t* bytes);

// Whether a file can have this header: there is a group, and a frame has room for the header and the end-of-group mark.
bool IsPlausible(const FileHeader& header);

// Writes every field but group 0's links.
void EncodeFileHeader(const FileHeader& header, uint8_t* bytes);

// Replaces the fields that change while the file is in use, in a header of the length that its first byte says.
void StoreRunningFields(uint8_t* bytes, uint32_t modulo, uint64_t alpha, uint32_t recordCount, uint16_t sizeLock);

// Alpha of a file without records.
constexpr uint64_t EmptyAlpha(uint32_t headerLength, uint32_t modulo) {
    return uint64_t{14} * (modulo - 1) + headerLength + 1;
}

}  // namespace qx
