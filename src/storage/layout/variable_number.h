// Variable-length numbers inside records: groups of 7 bits, the highest first, one group a byte; the last byte has bit
// 7 set.
//
//   0 -> 80    127 -> FF    128 -> 01 80    16,383 -> 7F FF    16,384 -> 01 00 80
#pragma once

#include <cstdint>

namespace qx {

inline constexpr uint32_t kLongestNumber = 5;  // bytes of a 32-bit value
inline constexpr uint8_t kNumberEnd = 0x80;

constexpr uint32_t NumberSize(uint32_t value) {
    uint32_t size = 1;
    while ((value >>= 7) != 0) {
        ++size;
    }
    return size;
}

// Writes NumberSize(value) bytes and returns how many.
constexpr uint32_t EncodeNumber(uint32_t value, uint8_t* to) {
    const uint32_t size = NumberSize(value);
    to[size - 1] = static_cast<uint8_t>((value & 0x7F) | kNumberEnd);
    for (uint32_t i = size - 1; i > 0; --i) {
        value >>= 7;
        to[i - 1] = static_cast<uint8_t>(value & 0x7F);
    }
    return size;
}

// Takes a number byte by byte, since it may lie across frames.
class NumberDecoder {
  public:
    // True when this was the last byte.
    constexpr bool Take(uint8_t byte) {
        value_ = (value_ << 7) | (byte & 0x7F);
        ++size_;
        return (byte & kNumberEnd) != 0;
    }

    // Whether what was taken can be part of a number: at most 5 bytes and 32 bits.
    constexpr bool IsSound() const { return size_ <= kLongestNumber && value_ <= 0xFFFFFFFF; }

    constexpr uint32_t Value() const { return static_cast<uint32_t>(value_); }
    constexpr uint32_t Size() const { return size_; }

  private:
    uint64_t value_ = 0;
    uint32_t size_ = 0;
};

}  // namespace qx
