// Reports while other threads work on what they are about.
#include <atomic>
#include <new>
#include <sstream>
#include <thread>

#include "support/file_test.h"
#include "support/statistics.h"

namespace qx_test {
namespace {

constexpr size_t kThreads = 3;

class ConcurrentReports : FreshProcessCounters, public FileTest {
  protected:
    // Each thread holds one group or key at most, and those that share a unit have it in the same mode.
    static void CheckByteLocks(const std::string& table) {
        std::istringstream rows(table);
        std::string previousMode;
        uint64_t previousOffset = 0;
        size_t count = 0;
        for (std::string row; std::getline(rows, row, '|'); ++count) {
            const size_t comma = row.find(',');
            ASSERT_NE(comma, std::string::npos) << table;
            const uint64_t offset = std::stoull(row.substr(0, comma));
            const std::string mode = row.substr(comma + 1);
            EXPECT_GE(offset, previousOffset) << table;
            EXPECT_TRUE(offset != previousOffset || mode == previousMode) << table;
            previousOffset = offset;
            previousMode = mode;
        }
        EXPECT_LE(count, kThreads) << table;
    }
};

TEST_F(ConcurrentReports, AreWhole) {
    const uint32_t file = CreateAndOpen("F", FixedFile(4, 256));
    std::vector<std::string> keys;
    for (uint32_t group = 0; group < 4; ++group) {
        keys.push_back(KeysOf(group, 4, 1)[0]);
        ASSERT_TRUE(Put(file, keys.back(), "data"));
    }
    ASSERT_TRUE(Flush());
    std::atomic<bool> stop{false};
    std::atomic<uint32_t> reads{0};
    std::vector<std::thread> threads;
    for (size_t thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            StatusRecord status{};
            for (size_t turn = thread; !stop; ++turn) {
                Buffer(kKey) = keys[turn % keys.size()];
                Buffer(kData) = "data";
                if (turn % 3 == 0) {
                    EXPECT_EQ(QXWriteRecord(file, kKey, kData, &status), 1);
                } else {
                    EXPECT_EQ(QXReadRecord(file, kKey, kData, &status), 1);
                    ++reads;
                }
                Buffer(kKey) = "lock of thread " + std::to_string(thread);  // a session has one lock on a key
                EXPECT_EQ(QXSharedLockRecord(file, kKey, &status) + QXUnlockRecord(file, kKey, &status), 2)
                    << status.Code;
            }
        });
    }
    uint64_t before = 0;
    for (int turn = 0; turn < 100; ++turn) {
        CheckByteLocks(ValueIn(ReportOn(Session, kVolumeReport, Path("F")), "Byte Locks|Offset,Exclusive,Count"));
        const Report report = ReportOn(Session, kFileReport, Path("F"));
        EXPECT_EQ(ValueIn(report, "New Record Count"), "4");
        const uint64_t now = std::stoull(ValueIn(report, "Read Records"));
        EXPECT_GE(now, before);
        before = now;
        ReportOn(Session, kProcessReport);
        ReportOn(Session, kSessionReport, "", Session);
        ReportOn(Session, kHandleReport, "", file);
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const uint32_t kind : {kProcessReport, kVolumeReport, kFileReport}) {
        EXPECT_EQ(ValueIn(ReportOn(Session, kind, Path("F")), "Read Records"), std::to_string(reads));
    }
}

}  // namespace
}  // namespace qx_test
