// Little-endian integers at any offset.
#pragma once

#include <cstdint>

namespace qx_check {

inline uint16_t Get16(const uint8_t* at) {
    return static_cast<uint16_t>(at[0] | (at[1] << 8));
}

inline uint32_t Get32(const uint8_t* at) {
    return static_cast<uint32_t>(Get16(at)) | (static_cast<uint32_t>(Get16(at + 2)) << 16);
}

inline void Put16(uint8_t* at, uint16_t value) {
    at[0] = static_cast<uint8_t>(value & 0xFF);
    at[1] = static_cast<uint8_t>(value >> 8);
}

inline void Put32(uint8_t* at, uint32_t value) {
    Put16(at, static_cast<uint16_t>(value & 0xFFFF));
    Put16(at + 2, static_cast<uint16_t>(value >> 16));
}

}  // namespace qx_check
