// The byte checker: reads the two operating-system files of a hashed file and proves that they are exactly what the
// layout promises. It shares no code with the engine, believes nothing it reads, and changes nothing.
//
// Nobody may change the file meanwhile. A file that a process has open may be checked between two calls, with
// Options::openProcesses set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qx_check {

struct Options {
    // The fill character of the file's volume.
    uint8_t fillCharacter = 0;
    // Off after failed writes: a group that was cut keeps old bytes behind its end-of-group mark.
    bool checkFill = true;
    // After failed writes: allows overflow frames that are neither in a chain nor in the free list, a free frame at the
    // end of the overflow file, and an overflow file longer than HighWater frames.
    bool allowLeakedFrames = false;
    // After failed writes: allows any Alpha and RecordCount in the header.
    bool allowCountDrift = false;
    // After walks that count exactly: under a header shorter than 32 bytes Alpha may lack what it had too much before,
    // because a stored value above that of full groups is read as that.
    bool allowCutSurplus = false;
    // How many processes have the file open. Each may keep changes of Alpha and RecordCount back, up to fixed margins.
    uint32_t openProcesses = 0;
    // Problems described; the rest are counted.
    size_t maximumProblems = 100;
};

// The file header as stored.
struct Header {
    uint8_t headerLength = 0;
    uint32_t modulo = 0;
    uint32_t frameSize = 0;
    uint64_t alpha = 0;
    uint8_t threshold = 0;
    uint16_t sizeLock = 0;
    uint32_t recordCount = 0;  // 0 when the header is too short to hold it
};

struct Report {
    // Each names the file, frame and position and says what is wrong there.
    std::vector<std::string> problems;
    // False when a file could not be opened or read; problems then says why.
    bool readable = true;

    Header header;
    uint32_t highWater = 0;

    // As counted from the groups; a group that is broken counts up to the break.
    uint64_t alpha = 0;
    uint64_t recordCount = 0;
    uint64_t chains = 0;        // groups with overflow frames
    uint64_t chainFrames = 0;   // overflow frames in them
    uint64_t longestChain = 0;  // in overflow frames
    uint64_t freeFrames = 0;    // in the free list
    uint64_t listFrames = 0;    // frames that hold the free list, frame 0 included
    uint64_t leakedFrames = 0;

    bool Clean() const { return problems.empty(); }
};

using RecordCallback = std::function<void(std::string_view key, std::string_view data, uint32_t group)>;

// Checks pathWithoutExtension.LK and .OV. onRecord gets every record that decodes, group by group in stored order.
Report CheckFile(const std::string& pathWithoutExtension, const Options& options = {},
                 const RecordCallback& onRecord = {});

}  // namespace qx_check
