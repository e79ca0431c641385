// Files of many shapes, each beside a model, for a long time.
#include <gtest/gtest.h>

#include "model/failure_run.h"
#include "model/model_run.h"
#include "support/test_seed.h"

namespace qx_test {
namespace {

constexpr size_t kMegabyte = size_t{1} << 20;

// Chains from none to dozens of overflow frames, and free lists that spill into many frames.
const Scenario kScenarios[] = {
    {32, 256, 7, 2, 300, 50'000},     {22, 256, 1, 2, 60, 20'000},        {26, 1000, 13, 2, 600, kMegabyte},
    {22, 1000, 3, 2, 150, 100'000},   {32, 1024, 211, 2, 800, kMegabyte}, {26, 1024, 2, 2, 120, 200'000},
    {32, 4096, 5, 2, 400, kMegabyte}, {22, 4096, 17, 2, 600, kMegabyte},  {32, 70'000, 3, 2, 300, kMegabyte},
    {32, 256, 1, 0, 500, 50'000},     {26, 1000, 3, 1, 500, 200'000},     {22, 4096, 5, 0, 1000, 200'000},
};

class ModelTest : public testing::TestWithParam<Scenario> {};
using SlowModelTest = ModelTest;

TEST_P(ModelTest, AgreesWithAMap) {
    ModelRun(GetParam(), TestSeed()).Run(30'000);
}

TEST_P(SlowModelTest, AgreesWithAMap) {
    ModelRun(GetParam(), TestSeed()).Run(1'000'000 / std::size(kScenarios) + 1);
}

INSTANTIATE_TEST_SUITE_P(Files, ModelTest, testing::ValuesIn(kScenarios));
INSTANTIATE_TEST_SUITE_P(Files, SlowModelTest, testing::ValuesIn(kScenarios));

// Small enough to be looked at as a whole after every failure, and chains long enough to fail in the middle of.
const Scenario kFailing[] = {
    {32, 256, 5, 2, 100, 8'000},
    {22, 256, 2, 2, 60, 20'000},
    {26, 1000, 4, 2, 100, 20'000},
    {32, 1024, 3, 2, 60, 50'000},
    {32, 1024, 3, 2, 60, 50'000, "FLUSHALLUPDATES = YES"},
    {26, 4096, 1, 2, 100, 60'000},
};

class FailureTest : public testing::TestWithParam<Scenario> {
  protected:
    void Run(uint64_t operations) {
        FailureRun run(GetParam(), TestSeed());
        run.Run(operations);
        std::cout << run.Met().Failures << " failures, " << run.Met().DamagedGroups << " damaged groups, "
                  << run.Met().DamagedLists << " damaged lists\n";
        EXPECT_GT(run.Met().Failures, operations / 20);
        EXPECT_GT(run.Met().DamagedGroups, 0u);
    }
};
using SlowFailureTest = FailureTest;

TEST_P(FailureTest, LeavesWhatItMayLeave) {
    Run(12'000);
}

TEST_P(SlowFailureTest, LeavesWhatItMayLeave) {
    Run(100'000);
}

INSTANTIATE_TEST_SUITE_P(Files, FailureTest, testing::ValuesIn(kFailing));
INSTANTIATE_TEST_SUITE_P(Files, SlowFailureTest, testing::ValuesIn(kFailing));

}  // namespace
}  // namespace qx_test
