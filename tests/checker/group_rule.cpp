#include "group_rule.h"

#include <algorithm>
#include <bit>

namespace qx_check {

Split SplitModulo(uint32_t modulo) {
    if (modulo < 2) {
        return {0, 2, kSingleGroup};
    }
    const auto level = static_cast<uint32_t>(std::bit_width(modulo)) - 2;
    return {level, modulo >> level, modulo & ((1U << level) - 1)};
}

uint32_t HashKey(std::string_view key) {
    uint32_t hash = 0;
    for (const char c : key) {
        hash = hash * 9 + static_cast<uint32_t>(static_cast<int8_t>(c));
    }
    return hash;
}

uint32_t GroupOf(uint32_t hash, const Split& split) {
    if (split.remainder == kSingleGroup) {
        return 0;
    }
    uint32_t state = hash;
    const auto drawDigit = [&state] {
        state = state * 314159621U + 6700417U;
        return (state >> 16) & 3U;
    };
    uint32_t group = hash & 1;
    for (uint32_t k = 0; k < split.level; ++k) {
        const uint32_t digit = drawDigit();
        if (digit >= 2) {
            group = (digit << k) + (group & ((1U << k) - 1));
        }
    }
    const uint32_t low = group & ((1U << split.level) - 1);
    const uint32_t bound = split.multiplier + (split.remainder > low ? 1 : 0);
    uint32_t digit = drawDigit();
    while (digit >= bound) {
        digit = drawDigit();
    }
    return digit < 2 ? group : (digit << split.level) + low;
}

bool StampAgrees(uint32_t group, uint32_t stamp, uint32_t modulo) {
    const uint64_t lower = std::min(stamp, modulo);
    const uint64_t upper = std::max(stamp, modulo);
    if (group >= lower) {
        return stamp == modulo;
    }
    const auto passes = [lower, upper](uint64_t step) { return lower <= step && step < upper; };
    if (group == 0 && passes(1)) {
        return false;
    }
    // The step away from a modulo takes records from the groups that equal its remainder in their low `level` bits and
    // are below multiplier × 2^level: one such modulo for each level and multiplier.
    for (uint32_t level = 0; level <= 30; ++level) {
        const uint32_t low = group & ((1U << level) - 1);
        for (uint64_t multiplier = 2; multiplier <= 3; ++multiplier) {
            if ((group >> level) < multiplier && passes((multiplier << level) + low)) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace qx_check
