// For tests of the floors below the exported functions: heaps and wait events as in a started library.
#pragma once

#include <gtest/gtest.h>

#include "runtime/counters.h"
#include "runtime/library_record.h"
#include "runtime/lock_heap.h"
#include "runtime/record_heap.h"
#include "runtime/wait_event_pool.h"
#include "support/faulty_platform.h"
#include "support/raised.h"

namespace qx_test {

class ProcessSetUp : public testing::Test {
  protected:
    ProcessSetUp() { qx::SetUpProcess(); }

    // Whatever a test has made is given back by then.
    ~ProcessSetUp() override {
        Platform.Clear();
        EXPECT_EQ(qx::theRecordHeap.BlockCount(), 1U) << "besides the event pool's entries";
        EXPECT_EQ(qx::theLockHeap.BlockCount(), 0U);
        EXPECT_EQ(qx::theWaitEvents.TakenCount(), 0U);
        qx::TearDownProcess();
        EXPECT_EQ(Platform.Held.HeapBlocks, 0);
        EXPECT_EQ(Platform.Held.Heaps, 0);
        EXPECT_EQ(Platform.Held.Events, 0);
        EXPECT_EQ(Platform.Held.OpenHandles, 0);
    }

    // How often the process has counted something since the last call for it, or the start of the test.
    uint32_t Counted(qx::Counter counter) {
        uint32_t& seen = seen_[static_cast<size_t>(counter)];
        const uint32_t before = std::exchange(seen, qx::theProcessCounters.Value(counter));
        return seen - before;
    }

    FaultyPlatform Platform;

  private:
    static std::array<uint32_t, qx::kCounterCount> CountsNow() {
        std::array<uint32_t, qx::kCounterCount> counts{};
        for (size_t i = 0; i < counts.size(); ++i) {
            counts[i] = qx::theProcessCounters.Value(static_cast<qx::Counter>(i));
        }
        return counts;
    }

    std::array<uint32_t, qx::kCounterCount> seen_ = CountsNow();
};

}  // namespace qx_test
