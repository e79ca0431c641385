#include "records/group_rule.h"

#include <bit>

namespace qx {

namespace {

// Draws numbers from 0 to 3 that depend on a key's hash only.
class DigitGenerator {
  public:
    explicit DigitGenerator(uint32_t hash) : state_(hash) {}

    uint32_t Next() {
        state_ = state_ * 314159621 + 6700417;
        return (state_ >> 16) & 3;
    }

  private:
    uint32_t state_;
};

}  // namespace

ModuloSplit::ModuloSplit(uint32_t modulo) : Level(0), Multiplier(2), Remainder(kSingleGroup) {
    if (modulo >= 2) {
        Level = modulo < 4 ? 0 : static_cast<uint32_t>(std::bit_width(modulo)) - 2;
        Multiplier = modulo >> Level;
        Remainder = modulo & ((uint32_t{1} << Level) - 1);
    }
}

uint32_t GroupOf(uint32_t hash, const ModuloSplit& split) {
    if (split.Remainder == ModuloSplit::kSingleGroup) {
        return 0;
    }
    // Half of the digits are 2 or 3, in no order that a processor could foresee: choosing without a branch makes this
    // several times as fast.
    DigitGenerator digits(hash);
    uint32_t group = hash & 1;
    for (uint32_t level = 0; level < split.Level; ++level) {
        const uint32_t digit = digits.Next();
        const uint32_t lowBits = (uint32_t{1} << level) - 1;
        const uint32_t moved = (digit << level) + (group & lowBits);
        const uint32_t takesMoved = 0 - (digit >> 1);
        group = (moved & takesMoved) | (group & ~takesMoved);
    }
    const uint32_t top = uint32_t{1} << split.Level;
    const uint32_t low = group & (top - 1);
    const uint32_t bound = split.Remainder > low ? split.Multiplier + 1 : split.Multiplier;
    uint32_t digit;
    do {
        digit = digits.Next();
    } while (digit >= bound);
    return digit < 2 ? group : digit * top + low;
}

}  // namespace qx
