#include "group_rule.h"

#include <array>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace qx_check {
namespace {

TEST(GroupRule, HashesKnownKeys) {
    EXPECT_EQ(HashKey(""), 0U);
    EXPECT_EQ(HashKey("A"), 0x41U);
    EXPECT_EQ(HashKey("ABC"), 0x1726U);
    EXPECT_EQ(HashKey("12345"), 0x5885FU);
    EXPECT_EQ(HashKey("\xE9\x41"), 0xFFFFFF72U);
}

TEST(GroupRule, SplitsKnownModuli) {
    const std::vector<std::array<uint32_t, 4>> known = {{0, 0, 2, kSingleGroup},
                                                        {1, 0, 2, kSingleGroup},
                                                        {2, 0, 2, 0},
                                                        {3, 0, 3, 0},
                                                        {4, 1, 2, 0},
                                                        {5, 1, 2, 1},
                                                        {7, 1, 3, 1},
                                                        {8, 2, 2, 0},
                                                        {15, 2, 3, 3},
                                                        {100, 5, 3, 4},
                                                        {1000, 8, 3, 232}};
    for (const auto& [modulo, level, multiplier, remainder] : known) {
        const Split split = SplitModulo(modulo);
        EXPECT_EQ(split.level, level) << modulo;
        EXPECT_EQ(split.multiplier, multiplier) << modulo;
        EXPECT_EQ(split.remainder, remainder) << modulo;
    }
}

TEST(GroupRule, PlacesKnownKeys) {
    const std::array<uint32_t, 8> moduli = {2, 3, 4, 5, 7, 8, 13, 100};
    const auto groups = [&moduli](std::string_view key) {
        std::vector<uint32_t> result;
        for (const uint32_t modulo : moduli) {
            result.push_back(GroupOf(HashKey(key), SplitModulo(modulo)));
        }
        return result;
    };
    EXPECT_EQ(groups("A"), (std::vector<uint32_t>{1, 1, 1, 1, 1, 1, 1, 25}));
    EXPECT_EQ(groups("12345"), (std::vector<uint32_t>{1, 2, 2, 4, 6, 6, 10, 70}));
    EXPECT_EQ(groups(""), (std::vector<uint32_t>{0, 2, 2, 4, 4, 4, 4, 68}));
    EXPECT_EQ(GroupOf(HashKey("12345"), SplitModulo(0)), 0U);
    EXPECT_EQ(GroupOf(HashKey("12345"), SplitModulo(1)), 0U);
}

// The groups of many hashes under every modulo of a range, to hold the rule and the stamps against.
class GroupTable {
  public:
    static constexpr uint32_t kModuli = 100;

    GroupTable() : groups_(kModuli + 1) {
        std::mt19937 random(7);
        for (int i = 0; i < 20000; ++i) {
            const auto hash = static_cast<uint32_t>(random());
            for (uint32_t modulo = 1; modulo <= kModuli; ++modulo) {
                groups_[modulo].push_back(GroupOf(hash, SplitModulo(modulo)));
            }
        }
    }

    const std::vector<uint32_t>& Under(uint32_t modulo) const { return groups_[modulo]; }

    // For each group below both moduli: do they send the same hashes there?
    std::vector<bool> SameHashes(uint32_t left, uint32_t right) const {
        std::vector<bool> same(std::min(left, right), true);
        for (size_t i = 0; i < groups_[left].size(); ++i) {
            const uint32_t a = groups_[left][i];
            const uint32_t b = groups_[right][i];
            for (const uint32_t group : {a, b}) {
                if (a != b && group < same.size()) {
                    same[group] = false;
                }
            }
        }
        return same;
    }

  private:
    std::vector<std::vector<uint32_t>> groups_;
};

TEST(GroupRule, GrowingByOneMovesKeysOnlyIntoTheNewGroup) {
    const GroupTable table;
    for (uint32_t modulo = 1; modulo < GroupTable::kModuli; ++modulo) {
        const Split split = SplitModulo(modulo);
        for (size_t i = 0; i < table.Under(modulo).size(); ++i) {
            const uint32_t before = table.Under(modulo)[i];
            const uint32_t after = table.Under(modulo + 1)[i];
            ASSERT_LT(before, modulo);
            if (before != after) {
                ASSERT_EQ(after, modulo);
                ASSERT_TRUE(modulo == 1 || before % (1U << split.level) == split.remainder) << modulo;
            }
        }
    }
}

TEST(GroupRule, StampAgreesWhenTheGroupHoldsTheSameKeysUnderBothModuli) {
    const GroupTable table;
    for (uint32_t modulo = 1; modulo <= GroupTable::kModuli; ++modulo) {
        for (uint32_t stamp = 1; stamp <= GroupTable::kModuli; ++stamp) {
            const std::vector<bool> same = table.SameHashes(stamp, modulo);
            for (uint32_t group = 0; group < modulo; ++group) {
                ASSERT_EQ(StampAgrees(group, stamp, modulo), group < same.size() && same[group])
                    << "group " << group << ", stamp " << stamp << ", modulo " << modulo;
            }
        }
    }
}

TEST(GroupRule, StampAgreesForHostileValues) {
    EXPECT_FALSE(StampAgrees(1, 0, 7));
    EXPECT_FALSE(StampAgrees(6, 6, 7));
    EXPECT_FALSE(StampAgrees(0, 0xFFFFFFFF, 1));
    EXPECT_TRUE(StampAgrees(0xFFFFFFFE, 0xFFFFFFFF, 0xFFFFFFFF));
    EXPECT_FALSE(StampAgrees(0x40000001, 0x40000002, 0xFFFFFFFF));
}

}  // namespace
}  // namespace qx_check
