// Whether a stamp may stand in a group. The group rule itself is held against the engine's by that one's tests.
#include "group_rule.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace qx_check {
namespace {

// The groups of many hashes under every modulo of a range, to hold the stamps against.
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
