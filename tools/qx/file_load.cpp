#include "file_load.h"

namespace qx::tool {

FileLoad::FileLoad(const HeaderValues& header)
    // 32 bits hold the product, as in the library: that is what it goes by.
    : ThresholdBytes((header.Threshold * header.FrameSize) >> 8) {
    const std::uint64_t frames = std::uint64_t{header.Modulo} * header.FrameSize;
    if (header.Modulo == 0 || frames > UINT32_MAX) {
        return;
    }
    const std::uint64_t load = header.Alpha;
    const std::uint64_t threshold = std::uint64_t{header.Modulo} * ThresholdBytes;
    const std::uint64_t mergeBytes = std::uint64_t{ThresholdBytes} * 9 / 10;
    const auto groups = static_cast<double>(header.Modulo);
    Load = load;
    PercentOfFrames = 100 * static_cast<double>(load) / static_cast<double>(frames);
    if (threshold != 0) {
        PercentOfThreshold = 100 * static_cast<double>(load) / static_cast<double>(threshold);
    }
    BytesPerGroup = static_cast<double>(load) / groups;
    WouldGrow = header.SizeLock <= 1 && load > threshold;
    WouldShrink = header.SizeLock == 0 && load < (header.Modulo - std::uint64_t{1}) * mergeBytes;
}

}  // namespace qx::tool
