#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "group_totals.h"

namespace qx::tool {

/// A bar of a picture of how many groups have chains of so many frames.
struct ChainBar {
    std::string Label;  // "3 to 4 frames"
    std::uint64_t Groups;
};

std::vector<ChainBar> ChainBars(const GroupTotals& totals);

}  // namespace qx::tool
