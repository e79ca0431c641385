#pragma once

#include <cstdint>
#include <string>

#include "group_map.h"

namespace qx::tool {

/// Cells that a drawing has room for.
constexpr std::uint64_t kMostSvgCells = 6000;

/// The same picture as a drawing, every cell of which tells more when it is pointed at.
std::string MapSvg(const GroupMap& map, const std::string& caption);

}  // namespace qx::tool
