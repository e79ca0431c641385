#include "runtime/counters.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace qx_test {
namespace {

using qx::Counter;

struct Levels {
    qx::CounterSet Session, Volume, File, Handle;

    qx::CounterLevels All() { return {&Session, &Volume, &File, &Handle}; }

    // The counter at session, volume, file and handle.
    std::vector<uint32_t> Values(Counter counter) const {
        return {Session.Value(counter), Volume.Value(counter), File.Value(counter), Handle.Value(counter)};
    }
};

TEST(Counters, EachKindOfEventIsCountedAtItsLevels) {
    using Values = std::vector<uint32_t>;
    Levels levels;
    const auto ofProcess = [](Counter counter) { return qx::theProcessCounters.Value(counter); };
    const uint32_t before[] = {ofProcess(Counter::ReadRecords), ofProcess(Counter::GroupLocks),
                               ofProcess(Counter::ReadAllocationErrors), ofProcess(Counter::AddSessionFiles)};
    levels.All().CountCall(Counter::ReadRecords);
    levels.All().CountWork(Counter::GroupLocks);
    levels.All().CountRefusal(Counter::ReadAllocationErrors);
    levels.All().EnterSessionFile();
    levels.All().EnterSessionFile();
    levels.All().LeaveSessionFile();
    EXPECT_EQ(levels.Values(Counter::ReadRecords), (Values{1, 1, 1, 1}));
    EXPECT_EQ(levels.Values(Counter::GroupLocks), (Values{0, 1, 1, 0}));
    EXPECT_EQ(levels.Values(Counter::ReadAllocationErrors), (Values{1, 0, 0, 0}));
    EXPECT_EQ(levels.Values(Counter::ActiveSessionFiles), (Values{1, 1, 1, 0}));
    EXPECT_EQ(levels.Values(Counter::PeakActiveSessionFiles), (Values{2, 2, 2, 0}));
    EXPECT_EQ(levels.Values(Counter::AddSessionFiles), (Values{2, 2, 2, 0}));
    EXPECT_EQ(levels.Values(Counter::RemoveSessionFiles), (Values{1, 1, 1, 0}));
    qx::CounterLevels none;
    none.CountCall(Counter::ReadRecords);
    none.CountWork(Counter::GroupLocks);
    none.CountRefusal(Counter::ReadAllocationErrors);
    none.EnterSessionFile();
    none.LeaveSessionFile();
    levels.All().LeaveSessionFile();
    EXPECT_EQ(ofProcess(Counter::ReadRecords) - before[0], 2U);
    EXPECT_EQ(ofProcess(Counter::GroupLocks) - before[1], 2U);
    EXPECT_EQ(ofProcess(Counter::ReadAllocationErrors) - before[2], 2U);
    EXPECT_EQ(ofProcess(Counter::AddSessionFiles) - before[3], 3U);
    EXPECT_EQ(ofProcess(Counter::ActiveSessionFiles), 0U);
}

TEST(ConcurrentCounters, NoCountIsLost) {
    qx::CounterSet set;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 10'000; ++i) {
                set.Increment(Counter::ReadFrames);
                set.Enter(Counter::ActiveFiles, Counter::PeakActiveFiles);
                set.Leave(Counter::ActiveFiles);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(set.Value(Counter::ReadFrames), 40'000U);
    EXPECT_EQ(set.Value(Counter::ActiveFiles), 0U);
    EXPECT_GE(set.Value(Counter::PeakActiveFiles), 1U);
    EXPECT_LE(set.Value(Counter::PeakActiveFiles), 4U);
}

}  // namespace
}  // namespace qx_test
