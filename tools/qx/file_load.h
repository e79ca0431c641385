#pragma once

#include <cstdint>
#include <optional>
#include <qx.hpp>

namespace qx::tool {

/// What follows from a header about how full the file is and whether that will change its number of groups.
struct FileLoad {
    explicit FileLoad(const HeaderValues& header);

    std::uint32_t ThresholdBytes;  // of load that a group may have on average before one is added

    // Nothing where the header record's 32 bits do not tell the load.
    std::optional<std::uint64_t> Load;      // bytes in use in the groups, each counted up to one frame
    std::optional<double> PercentOfFrames;  // of the bytes of all groups' first frames
    std::optional<double> PercentOfThreshold;
    std::optional<double> BytesPerGroup;
    std::optional<bool> WouldGrow;
    std::optional<bool> WouldShrink;
};

}  // namespace qx::tool
