#include "locking/lock_offsets.h"

#include <gtest/gtest.h>
#include <random>

#include "support/test_seed.h"

namespace qx_test {
namespace {

using qx::LockArea;
using qx::LockMap;

constexpr LockMap kMap;

TEST(LockOffsets, ThingsHaveTheirUnits) {
    constexpr uint32_t kCust = qx::HashFileName("CUST");
    EXPECT_EQ(kCust, 764395U);
    EXPECT_EQ(kMap.FileUnit(kCust), 0x1EA7AC00U);
    EXPECT_EQ(kMap.SelectUnit(kCust), 0xFEA7AC00U);
    EXPECT_EQ(kMap.GroupUnit(kCust, 5), 0xBEB01400U);
    EXPECT_EQ(kMap.RecordUnit(qx::HashRecordKey(kCust, "K1")), 0x598BAC00U);
    EXPECT_EQ(qx::LockPosition(kMap.GroupUnit(kCust, 5) + 3), 0xFFFFFFFFBEB01403U);
    EXPECT_EQ(kMap.UserSlot(1023), 1024U);
    EXPECT_EQ(kMap.IdentifierUnit(""), 1025U);
    EXPECT_EQ(kMap.IdentifierUnit("ab"), 1025U + (97 * 10 + 98) * 1024);
    EXPECT_EQ(qx::HashFileName("\xFF"), 255U * 10 + 255) << "bytes are unsigned";
    EXPECT_EQ(qx::HashFileName(""), 255U);
    EXPECT_EQ(LockMap(1000).FileUnit(kCust), 0x10000000U + 1000 * 227525) << "what 268,435 units leave of 764,395";
}

TEST(LockOffsets, AreasHoldWholeUnits) {
    constexpr LockArea kAreas[] = {LockArea::IdentifierSlots, LockArea::FileLocks, LockArea::RecordLocks,
                                   LockArea::GroupLocks, LockArea::SelectLocks};
    constexpr uint32_t kUnits[] = {262142, 262144, 1572864, 1835008, 262144};
    for (size_t i = 0; i < std::size(kAreas); ++i) {
        EXPECT_EQ(kMap.CountOf(kAreas[i]), kUnits[i]);
        EXPECT_GE(LockMap(LockMap::kMostUsers).CountOf(kAreas[i]), 1U);
    }
    EXPECT_EQ(LockMap(LockMap::kMostUsers + 1).CountOf(LockArea::IdentifierSlots), 0U);
}

// The pieces of a row, taken together, are the units of its groups in their order.
TEST(LockOffsets, ARowOfGroupsIsAFewPieces) {
    std::mt19937_64 random(TestSeed());
    for (const uint32_t users : {0x1000000U, 0x300000U, 1024U}) {
        const LockMap map(users);
        const uint32_t units = map.CountOf(LockArea::GroupLocks);
        for (int i = 0; i < 200; ++i) {
            // Often so that the numbers wrap within the row.
            const uint32_t hash = i % 2 == 0 ? 0xFFFFFFFF / 1024 : static_cast<uint32_t>(random());
            const uint32_t first = 1 + static_cast<uint32_t>(random()) % 2000;
            const uint32_t count = static_cast<uint32_t>(random()) % std::min(units, 3000U);
            uint32_t group = first;
            for (const auto& [start, length] : map.GroupUnits(hash, first, count)) {
                for (uint32_t unit = 0; unit < length; ++unit, ++group) {
                    ASSERT_EQ(start + unit * users, map.GroupUnit(hash, group)) << hash << ' ' << first << ' ' << count;
                }
            }
            EXPECT_EQ(group, first + count);
        }
        for (const uint32_t count : {units, units + 1, 0xFFFFFFFEU}) {
            const auto pieces = map.GroupUnits(7, 1, count);
            EXPECT_EQ(pieces[0].First, map.BaseOf(LockArea::GroupLocks));
            EXPECT_EQ(pieces[0].Count, units) << "no unit twice";
            EXPECT_EQ(pieces[1].Count, 0U);
        }
    }
}

}  // namespace
}  // namespace qx_test
