#include "file_load.h"

#include <cstdint>
#include <gtest/gtest.h>

namespace {

using qx::tool::FileLoad;

// Ten groups of 1,000 bytes with a threshold of one half: a group is added above 5,000 bytes, and taken away below nine
// tenths of what nine groups may hold, 4,050.
qx::HeaderValues TenGroups(std::uint32_t sizeLock, std::uint32_t load) {
    return {.Version = 120,
            .FrameSize = 1000,
            .Threshold = 128,
            .SizeLock = sizeLock,
            .Modulo = 10,
            .RecordCount = 1,
            .Alpha = load,
            .ModuloVerified = false};
}

TEST(FileLoad, GrowingAndShrinkingFollowThresholdAndSizeLock) {
    const struct {
        std::uint32_t Load;
        std::uint32_t SizeLock;
        bool Grows;
        bool Shrinks;
    } cases[] = {{5000, 0, false, false}, {5001, 0, true, false}, {5001, 1, true, false},  {5001, 2, false, false},
                 {4050, 0, false, false}, {4049, 0, false, true}, {4049, 1, false, false}, {4049, 2, false, false}};
    for (const auto& [bytes, sizeLock, grows, shrinks] : cases) {
        const FileLoad load(TenGroups(sizeLock, bytes));
        EXPECT_EQ(load.WouldGrow, grows) << bytes << " bytes, size lock " << sizeLock;
        EXPECT_EQ(load.WouldShrink, shrinks) << bytes << " bytes, size lock " << sizeLock;
    }
}

TEST(FileLoad, ALoadThat32BitsMayNotTellIsUnknown) {
    qx::HeaderValues header = TenGroups(0, 4000);
    header.Modulo = 65536;
    header.FrameSize = 65535;
    EXPECT_EQ(FileLoad(header).Load, 4000u);
    header.FrameSize = 65536;
    const FileLoad load(header);
    EXPECT_FALSE(load.Load || load.PercentOfFrames || load.PercentOfThreshold || load.BytesPerGroup || load.WouldGrow ||
                 load.WouldShrink);
}

}  // namespace
