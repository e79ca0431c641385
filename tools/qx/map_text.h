#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "group_map.h"

namespace qx::tool {

/// How many columns of cells a picture of so many groups has in so many columns of a terminal, and how many cells.
struct MapTextShape {
    MapTextShape(std::uint32_t groups, std::size_t width);

    std::size_t LabelWidth;
    std::size_t Columns;
    std::uint64_t MostCells;
};

/// The picture, its legend, and how long the chains are, in lines of at most `width` characters.
std::string MapText(const GroupMap& map, std::size_t width, bool coloured);

}  // namespace qx::tool
