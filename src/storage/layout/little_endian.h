// Integers on disk: little-endian, at any offset.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace qx {

static_assert(std::endian::native == std::endian::little, "loads and stores below copy the bytes as they are");

template <class Integer>
Integer LoadLittleEndian(const uint8_t* from) {
    Integer value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <class Integer>
void StoreLittleEndian(uint8_t* to, Integer value) {
    std::memcpy(to, &value, sizeof value);
}

}  // namespace qx
