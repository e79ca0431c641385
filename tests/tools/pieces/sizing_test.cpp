#include "sizing.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "checker/group_rule.h"

namespace {

using qx::tool::Sizing;
using qx::tool::StoredBytesOf;

struct Measured {
    double Visits = 0;  // frames passed to reach a record's end, on average
    double Size = 0;    // bytes of both files for every byte of the records
    double Load = 0;    // of the threshold
};

// Where records that are stored one after the other would lie.
Measured Fill(const Sizing& sizing, std::uint32_t records, std::uint32_t recordBytes) {
    const qx_check::Split split = qx_check::SplitModulo(sizing.Modulo);
    const auto size = static_cast<std::uint64_t>(StoredBytesOf(recordBytes));
    std::vector<std::uint64_t> groups(sizing.Modulo, 1);  // with the mark that ends a group
    double visits = 0;
    for (std::uint32_t i = 0; i < records; ++i) {
        std::uint64_t& bytes = groups[qx_check::GroupOf(qx_check::HashKey("K" + std::to_string(1000003 * i)), split)];
        bytes += size;
        visits += static_cast<double>((bytes - 1) / (sizing.FrameSize - 14) + 1);
    }
    double frames = 1;
    double load = 0;
    for (const std::uint64_t bytes : groups) {
        frames += static_cast<double>(bytes / (sizing.FrameSize - 14) + 1);
        load += static_cast<double>(std::min<std::uint64_t>(bytes + 13, sizing.FrameSize));
    }
    return {visits / records, frames * sizing.FrameSize / (static_cast<double>(records) * static_cast<double>(size)),
            load / sizing.FrameSize / sizing.Modulo / (204 / 256.0)};
}

TEST(Sizing, FilesOfTheAdvisedShapeAreReadInFewVisitsAndCompact) {
    for (const std::uint32_t records : {1u, 100u, 10'000u, 36'000u, 100'000u, 1'000'000u}) {
        for (const std::uint32_t recordBytes : {20u, 100u, 500u, 2'000u}) {
            SCOPED_TRACE(std::to_string(records) + " records of " + std::to_string(recordBytes) + " bytes");
            const Sizing sizing = qx::tool::Advise({records, StoredBytesOf(recordBytes)});
            EXPECT_GE(sizing.Visits, 1);
            EXPECT_LE(sizing.Visits, 1.4);
            if (records >= 10'000) {
                const Measured measured = Fill(sizing, records, recordBytes);
                EXPECT_NEAR(measured.Visits, sizing.Visits, 0.08);
                EXPECT_LE(measured.Size, 1.75);
                EXPECT_LE(measured.Load, 1.02);
            }
        }
    }
}

TEST(Sizing, TheExpectationHoldsForOutgrownFramesToo) {
    for (const std::uint32_t records : {100'000u, 1'000'000u, 4'000'000u}) {
        const double stored = StoredBytesOf(100);
        const auto modulo = static_cast<std::uint32_t>(records * stored / (204 / 256.0 * 1024));
        const double expected = qx::tool::ExpectedVisits({records, stored}, 1024);
        EXPECT_NEAR(Fill({1024, modulo, 0}, records, 100).Visits / expected, 1, 0.06) << records;
    }
}

TEST(Sizing, LimitsAreKept) {
    const Sizing old = qx::tool::Advise({.Records = 10'000'000, .StoredBytes = 2000, .Threshold = 204, .Version = 110});
    EXPECT_EQ(old.FrameSize, 32768u);
    EXPECT_GT(old.Visits, 2);
    const Sizing huge = qx::tool::Advise({UINT32_MAX, UINT32_MAX});
    EXPECT_EQ(huge.FrameSize, 16u << 20);
    EXPECT_EQ(huge.Modulo, UINT32_MAX);
}

TEST(Sizing, WhatTheFileAddsIsCounted) {
    const std::uint64_t lengths[][2] = {{0, 3}, {13, 16}, {126, 129}, {127, 131}, {16382, 16386}, {16383, 16388}};
    for (const auto& [bytes, stored] : lengths) {
        EXPECT_EQ(StoredBytesOf(bytes), static_cast<double>(stored)) << bytes;
    }
}

}  // namespace
