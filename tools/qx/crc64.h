#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace qx::tool {

/// A checksum of bytes as they pass by: the 64-bit cyclic redundancy check of ECMA-182, reflected.
class Crc64 {
  public:
    void Add(char byte) noexcept { state_ = kTable[(state_ ^ static_cast<unsigned char>(byte)) & 255] ^ (state_ >> 8); }
    void Add(std::string_view bytes) noexcept {
        for (const char byte : bytes) {
            Add(byte);
        }
    }
    std::uint64_t Value() const noexcept { return ~state_; }

  private:
    static constexpr std::array<std::uint64_t, 256> kTable = [] {
        std::array<std::uint64_t, 256> table{};
        for (std::uint64_t byte = 0; byte < table.size(); ++byte) {
            std::uint64_t value = byte;
            for (int bit = 0; bit < 8; ++bit) {
                value = (value >> 1) ^ ((value & 1) != 0 ? 0xC96C5795D7870F42 : 0);
            }
            table[byte] = value;
        }
        return table;
    }();

    std::uint64_t state_ = ~std::uint64_t{0};
};

}  // namespace qx::tool
