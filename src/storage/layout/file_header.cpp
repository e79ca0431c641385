#include "storage/layout/file_header.h"

#include <algorithm>

#include "storage/layout/little_endian.h"

namespace qx {

namespace {

enum Field : uint32_t {
    kModulo = 9,
    kFrameSize = 13,
    kAlpha = 15,
    kThreshold = 19,
    kSizeLock = 20,
    kRecordCount = 22,
    kFrameSizeHigh = 26,
    kAlphaHigh = 28,
};

// The smallest load is taken from the longest header, whatever the length of this one.
uint64_t ClampAlpha(uint64_t alpha, uint32_t modulo, uint32_t frameSize) {
    const uint64_t most = uint64_t{frameSize} * modulo;
    const uint64_t least = EmptyAlpha(kHeaderLength120, modulo);
    return std::min(std::max(alpha, least), most);
}

}  // namespace

FileHeader DecodeFileHeader(const uint8_t* bytes) {
    FileHeader header;
    header.HeaderLength = bytes[0];
    header.Modulo = LoadLittleEndian<uint32_t>(bytes + kModulo);
    header.FrameSize = LoadLittleEndian<uint16_t>(bytes + kFrameSize);
    header.Alpha = LoadLittleEndian<uint32_t>(bytes + kAlpha);
    header.Threshold = bytes[kThreshold];
    header.SizeLock = LoadLittleEndian<uint16_t>(bytes + kSizeLock);
    if (HasRecordCount(header.HeaderLength)) {
        header.RecordCount = LoadLittleEndian<uint32_t>(bytes + kRecordCount);
    }
    if (HasHighParts(header.HeaderLength)) {
        header.FrameSize |= uint32_t{LoadLittleEndian<uint16_t>(bytes + kFrameSizeHigh)} << 16;
        header.Alpha |= uint64_t{LoadLittleEndian<uint32_t>(bytes + kAlphaHigh)} << 32;
    }
    header.Alpha = ClampAlpha(header.Alpha, header.Modulo, header.FrameSize);
    return header;
}

bool IsPlausible(const FileHeader& header) {
    return header.Modulo > 0 && header.FrameSize > header.HeaderLength;
}

void EncodeFileHeader(const FileHeader& header, uint8_t* bytes) {
    bytes[0] = header.HeaderLength;
    StoreLittleEndian(bytes + kFrameSize, static_cast<uint16_t>(header.FrameSize));
    bytes[kThreshold] = header.Threshold;
    if (HasHighParts(header.HeaderLength)) {
        StoreLittleEndian(bytes + kFrameSizeHigh, static_cast<uint16_t>(header.FrameSize >> 16));
    }
    StoreRunningFields(bytes, header.Modulo, header.Alpha, header.RecordCount, header.SizeLock);
}

void StoreRunningFields(uint8_t* bytes, uint32_t modulo, uint64_t alpha, uint32_t recordCount, uint16_t sizeLock) {
    StoreLittleEndian(bytes + kModulo, modulo);
    StoreLittleEndian(bytes + kAlpha, static_cast<uint32_t>(alpha));
    StoreLittleEndian(bytes + kSizeLock, sizeLock);
    if (HasRecordCount(bytes[0])) {
        StoreLittleEndian(bytes + kRecordCount, recordCount);
    }
    if (HasHighParts(bytes[0])) {
        StoreLittleEndian(bytes + kAlphaHigh, static_cast<uint32_t>(alpha >> 32));
    }
}

}  // namespace qx
