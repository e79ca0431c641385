// Which group a key belongs to, worked out here a second time so that the engine is not its own judge.
#pragma once

#include <cstdint>
#include <string_view>

namespace qx_check {

// modulo = multiplier × 2^level + remainder, with a multiplier of 2 or 3. Moduli 0 and 1 have no such form and are
// marked by the remainder kSingleGroup.
struct Split {
    uint32_t level;
    uint32_t multiplier;
    uint32_t remainder;
};

inline constexpr uint32_t kSingleGroup = 0xFFFFFFFF;

Split SplitModulo(uint32_t modulo);

uint32_t HashKey(std::string_view key);

uint32_t GroupOf(uint32_t hash, const Split& split);

// True when a group holds the same keys under both moduli, that is when no step of the modulo from the one to the other
// takes records out of the group or puts some into it. Only such a stamp may stand in a group's primary frame: a resize
// step stamps the groups it touches and leaves the others alone, so a stamp may be older than the file's modulo, and
// newer where the file has shrunk since it was created, but never by a step that concerned the group.
bool StampAgrees(uint32_t group, uint32_t stamp, uint32_t modulo);

}  // namespace qx_check
