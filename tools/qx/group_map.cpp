#include "group_map.h"

#include <algorithm>
#include <cmath>

#include "number_text.h"

namespace qx::tool {

namespace {

enum Shade : std::size_t { kEmpty, kQuarter, kHalf, kThreeQuarters, kFull, kTwo, kFour, kEight, kMore, kDamaged };

}  // namespace

GroupMap::GroupMap(const HeaderValues& header, std::uint64_t mostCells)
    : header_(header),
      groupsPerCell_((header.Modulo + mostCells - 1) / mostCells),
      cells_((header.Modulo + groupsPerCell_ - 1) / groupsPerCell_) {}

void GroupMap::Add(std::uint32_t group, const GroupVerification& result) {
    totals_.Add(header_, group, result);
    MapCell& cell = cells_[group / groupsPerCell_];
    ++cell.Groups;
    if (result.Damage) {
        ++cell.Damaged;
        return;
    }
    cell.Records += result.Measures.Records;
    cell.UsedBytes += UsedBytes(header_, result.Measures);
    cell.LongestChain = std::max(cell.LongestChain, result.Measures.OverflowFrames + 1);
}

double GroupMap::Fill(const MapCell& cell) const {
    const std::uint64_t sound = cell.Groups - cell.Damaged;
    return sound == 0 ? 0 : static_cast<double>(cell.UsedBytes) / static_cast<double>(sound) / header_.FrameSize;
}

const MapShade& GroupMap::ShadeOf(const MapCell& cell) const {
    if (cell.Damaged > 0) {
        return Shades()[kDamaged];
    }
    if (cell.Records == 0) {
        return Shades()[kEmpty];
    }
    constexpr double kUpTo[] = {0.25, 0.5, 0.75, 1, 2, 4, 8};
    const auto* found = std::lower_bound(std::begin(kUpTo), std::end(kUpTo), Fill(cell));
    return Shades()[kQuarter + static_cast<std::size_t>(found - std::begin(kUpTo))];
}

std::string GroupMap::Range(std::size_t cell) const {
    const std::uint64_t first = cell * groupsPerCell_;
    const std::uint64_t last = std::min<std::uint64_t>(first + groupsPerCell_, header_.Modulo) - 1;
    return first == last ? "group " + Grouped(first) : "groups " + Grouped(first) + " to " + Grouped(last);
}

const std::vector<MapShade>& GroupMap::Shades() {
    constexpr int kRed = 31;
    constexpr int kGreen = 32;
    constexpr int kYellow = 33;
    constexpr int kBlue = 34;
    constexpr int kMagenta = 35;
    static const std::vector<MapShade> shades = {
        {'.', "#eeeeee", kBlue, "no records"},        {'-', "#d6eef2", kBlue, "up to 1/4 frame"},
        {'=', "#a6d8d4", kGreen, "up to 1/2 frame"},  {'+', "#6cbfa5", kGreen, "up to 3/4 frame"},
        {'#', "#2f9e6e", kGreen, "up to 1 frame"},    {'2', "#f2d16b", kYellow, "up to 2 frames"},
        {'4', "#f09a4a", kYellow, "up to 4 frames"},  {'8', "#e0593a", kRed, "up to 8 frames"},
        {'*', "#a3202c", kRed, "more than 8 frames"}, {'!', "#7a1fa2", kMagenta, "damaged"},
    };
    return shades;
}

}  // namespace qx::tool
