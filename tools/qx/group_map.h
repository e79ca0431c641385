#pragma once

#include <cstdint>
#include <qx.hpp>
#include <string>
#include <vector>

#include "group_totals.h"

namespace qx::tool {

/// A picture's cell: one group, or a few neighbours.
struct MapCell {
    std::uint64_t Groups = 0;
    std::uint64_t Damaged = 0;
    std::uint64_t Records = 0;
    std::uint64_t UsedBytes = 0;
    std::uint64_t LongestChain = 0;  // frames
};

/// What a cell looks like.
struct MapShade {
    char Sign;
    std::string_view Colour;  // as SVG wants it
    int TerminalColour;       // 30 to 37
    std::string_view Meaning;
};

/// The groups of a file in a given number of cells at most.
class GroupMap {
  public:
    GroupMap(const HeaderValues& header, std::uint64_t mostCells);

    void Add(std::uint32_t group, const GroupVerification& result);

    const HeaderValues& Header() const { return header_; }
    std::uint64_t GroupsPerCell() const { return groupsPerCell_; }
    const std::vector<MapCell>& Cells() const { return cells_; }
    const GroupTotals& Totals() const { return totals_; }

    /// Bytes in use in a cell's groups on average, in frames.
    double Fill(const MapCell& cell) const;
    const MapShade& ShadeOf(const MapCell& cell) const;

    /// "groups 30 to 39" of a cell, by its place in Cells.
    std::string Range(std::size_t cell) const;

    /// Every shade there is, from little to much.
    static const std::vector<MapShade>& Shades();

  private:
    HeaderValues header_;
    std::uint64_t groupsPerCell_;
    std::vector<MapCell> cells_;
    GroupTotals totals_;
};

}  // namespace qx::tool
