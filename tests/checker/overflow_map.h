// What every frame of the overflow file is used for, filled in by the checks of the free list and of the groups.
#pragma once

#include <cstdint>
#include <vector>

#include "byte_checker.h"
#include "frame_file.h"
#include "problem_list.h"

namespace qx_check {

struct OverflowMap {
    // Frames that links and list entries may name are 1 to limit - 1: below HighWater and within the file.
    uint32_t limit = 1;
    std::vector<bool> listed;   // in the free list
    std::vector<bool> chained;  // in the chain of a group
    // False when the free list is damaged, so that a frame missing from it means nothing.
    bool listIsWhole = true;

    bool Names(uint32_t frame) const { return frame > 0 && frame < limit; }
};

// Checks the length of the overflow file and its free list, and makes the map. Fills the report's highWater, freeFrames
// and listFrames.
OverflowMap CheckFreeList(FrameFile& overflow, uint32_t frameSize, const Options& options, ProblemList& problems,
                          Report& report);

// After all groups have been walked: every frame must have turned up in a chain or in the list. Fills leakedFrames.
void CheckAllFramesUsed(const OverflowMap& map, const Options& options, ProblemList& problems, Report& report);

}  // namespace qx_check
