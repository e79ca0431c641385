// Which group a key belongs to: its hash, and linear hashing with two partial expansions for each doubling of the
// number of groups.
#pragma once

#include <cstdint>
#include <string_view>

namespace qx {

// Takes a key byte by byte; the bytes count as signed.
class KeyHash {
  public:
    void Take(uint8_t byte) { value_ = value_ * 9 + static_cast<uint32_t>(static_cast<int8_t>(byte)); }
    uint32_t Value() const { return value_; }

  private:
    uint32_t value_ = 0;
};

inline uint32_t HashKey(std::string_view key) {
    KeyHash hash;
    for (const char byte : key) {
        hash.Take(static_cast<uint8_t>(byte));
    }
    return hash.Value();
}

// A number of groups m as Multiplier * 2^Level + Remainder, with a multiplier of 2 or 3.
struct ModuloSplit {
    explicit ModuloSplit(uint32_t modulo);

    // The remainder of 0 and 1, which put every key into group 0.
    static constexpr uint32_t kSingleGroup = 0xFFFFFFFF;

    uint32_t Level;
    uint32_t Multiplier;
    uint32_t Remainder;
};

// The group of a key's hash; below the number of groups.
uint32_t GroupOf(uint32_t hash, const ModuloSplit& split);

inline uint32_t GroupOf(uint32_t hash, uint32_t modulo) {
    return GroupOf(hash, ModuloSplit(modulo));
}

}  // namespace qx
