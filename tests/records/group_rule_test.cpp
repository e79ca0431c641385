// The group rule: known values, agreement with the byte checker's own version of it, and the property of linear hashing
// that everything else rests on.
#include "records/group_rule.h"

#include <array>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "checker/group_rule.h"

namespace qx {
namespace {

TEST(GroupRule, GivesKnownHashesSplitsAndGroups) {
    const std::pair<std::string_view, uint32_t> hashes[] = {
        {"", 0}, {"A", 0x41}, {"ABC", 0x1726}, {"12345", 0x5885F}, {"\xE9\x41", 0xFFFFFF72}};
    for (const auto& [key, hash] : hashes) {
        EXPECT_EQ(HashKey(key), hash) << key;
    }
    EXPECT_NE(HashKey("key"), HashKey("Key"));

    const std::array<uint32_t, 4> splits[] = {
        {0, 0, 2, 0xFFFFFFFF}, {1, 0, 2, 0xFFFFFFFF}, {2, 0, 2, 0},      {3, 0, 3, 0},
        {4, 1, 2, 0},          {5, 1, 2, 1},          {7, 1, 3, 1},      {8, 2, 2, 0},
        {15, 2, 3, 3},         {100, 5, 3, 4},        {1000, 8, 3, 232}, {0xFFFFFFFF, 30, 3, 0x3FFFFFFF}};
    for (const auto& [modulo, level, multiplier, remainder] : splits) {
        const ModuloSplit split(modulo);
        EXPECT_EQ(split.Level, level) << modulo;
        EXPECT_EQ(split.Multiplier, multiplier) << modulo;
        EXPECT_EQ(split.Remainder, remainder) << modulo;
    }

    const std::array<uint32_t, 10> moduli = {0, 1, 2, 3, 4, 5, 7, 8, 13, 100};
    const std::pair<std::string_view, std::array<uint32_t, 10>> groups[] = {{"A", {0, 0, 1, 1, 1, 1, 1, 1, 1, 25}},
                                                                            {"12345", {0, 0, 1, 2, 2, 4, 6, 6, 10, 70}},
                                                                            {"", {0, 0, 0, 2, 2, 4, 4, 4, 4, 68}}};
    for (const auto& [key, expected] : groups) {
        for (size_t i = 0; i < moduli.size(); ++i) {
            EXPECT_EQ(GroupOf(HashKey(key), moduli[i]), expected[i]) << key << " modulo " << moduli[i];
        }
    }
}

// Every step of the modulo moves keys into the new group only, and only out of the groups that the split names.
TEST(GroupRule, AStepOfTheModuloMovesOnlyWhatItMust) {
    constexpr uint32_t kModuli = 5000;
    std::vector<uint32_t> hashes = {0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    std::mt19937 random(1);
    while (hashes.size() < 2000) {
        hashes.push_back(static_cast<uint32_t>(random()));
    }
    std::vector<uint32_t> groups(hashes.size(), 0);
    for (uint32_t modulo = 1; modulo < kModuli; ++modulo) {
        const ModuloSplit split(modulo);
        const ModuloSplit next(modulo + 1);
        for (size_t i = 0; i < hashes.size(); ++i) {
            const uint32_t group = GroupOf(hashes[i], next);
            if (group != groups[i]) {
                const uint32_t low = modulo == 1 ? 0 : split.Remainder;
                const uint32_t distance = groups[i] - low;
                ASSERT_EQ(group, modulo);
                ASSERT_EQ(distance & ((uint32_t{1} << split.Level) - 1), 0U) << "from group " << groups[i];
                ASSERT_LT(distance >> split.Level, modulo == 1 ? 1 : split.Multiplier) << "from group " << groups[i];
            }
            groups[i] = group;
        }
    }
}

TEST(GroupRule, AgreesWithTheByteChecker) {
    std::mt19937 random(2);
    for (int i = 0; i < 200000; ++i) {
        const auto hash = static_cast<uint32_t>(random());
        const uint32_t modulo = static_cast<uint32_t>(random()) >> random() % 32;
        ASSERT_EQ(GroupOf(hash, modulo), qx_check::GroupOf(hash, qx_check::SplitModulo(modulo)))
            << "hash " << hash << ", modulo " << modulo;
    }
}

}  // namespace
}  // namespace qx
