// Files of many shapes, each beside a model, for a long time.
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace qx_test
