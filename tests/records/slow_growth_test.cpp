// A file of a million records: how full it keeps itself, what a read of it takes, and what it gives back.
#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>
#include <numeric>
#include <qx.hpp>
#include <random>
#include <thread>

#include "checker/byte_checker.h"
#include "runtime/counters.h"
#include "support/test_library.h"
#include "support/test_seed.h"
#include "support/worker_witness.h"

namespace qx_test {
namespace {

struct Limits {
    uint32_t FrameSize;
    double ReadFrames;  // per read
};

class SlowGrowth : public testing::TestWithParam<Limits> {
  protected:
    static constexpr uint32_t kRecords = 1'000'000;

    SlowGrowth() { session_.CreateFile(path_, {.FrameSize = GetParam().FrameSize}); }

    static std::string Key(uint32_t number) {
        std::string digits = std::to_string(number);
        return std::string(15 - digits.size(), '0') + digits;
    }
    static std::string Data(uint32_t number) { return std::string(100, static_cast<char>('a' + number % 26)); }

    // Waits for the worker; the load is then between the two limits. Closed, the file is without fault, which includes
    // that it has exactly as many frames as groups.
    qx_check::Report Settle(const char* what) {
        qx::File file = session_.OpenFile(path_);
        const FileHeaderRecord header = WorkerWitness(library_, path_ + what).Settle(file.Handle());
        const uint64_t threshold = header.Threshold * header.FrameSize >> 8;
        EXPECT_LE(header.Alpha, header.Modulo * threshold);
        EXPECT_GE(header.Alpha, (header.Modulo - 1) * (threshold * 9 / 10));
        file.Close();
        const qx_check::Report report = qx_check::CheckFile(path_);
        EXPECT_TRUE(report.Clean()) << report.problems.front();
        Say(what);
        std::cout << "    " << report.recordCount << " records in " << header.Modulo << " groups, " << report.highWater
                  << " overflow frames, " << report.freeFrames << " free" << std::endl;
        return report;
    }

    void Say(const char* what) {
        const auto now = std::chrono::steady_clock::now();
        std::cout << "    " << what << ": "
                  << std::chrono::duration_cast<std::chrono::milliseconds>(now - last_).count() << " ms" << std::endl;
        last_ = now;
    }

    std::mt19937_64 random_{TestSeed()};
    TestDirectory directory_;
    const std::string path_ = directory_.File("MILLION");
    qx::Library library_;
    qx::Session session_{library_};
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

TEST_P(SlowGrowth, AMillionRecords) {
    qx::File file = session_.OpenFile(path_);
    std::vector<uint32_t> numbers(kRecords);
    std::iota(numbers.begin(), numbers.end(), 0);
    std::shuffle(numbers.begin(), numbers.end(), random_);
    for (const uint32_t number : numbers) {
        file.Write(Key(number), Data(number));
    }
    Say("writing");
    file.Close();
    const qx_check::Report full = Settle("settling full");
    EXPECT_EQ(full.recordCount, kRecords);

    file = session_.OpenFile(path_);
    constexpr uint32_t kReads = 200'000;
    const uint32_t before = qx::theProcessCounters.Value(qx::Counter::ReadFrames);
    for (uint32_t i = 0; i < kReads; ++i) {
        const auto number = static_cast<uint32_t>(random_() % kRecords);
        ASSERT_TRUE(file.Read(Key(number)) == Data(number));
    }
    const double frames = double(qx::theProcessCounters.Value(qx::Counter::ReadFrames) - before) / kReads;
    std::cout << "    " << frames << " frames per read" << std::endl;
    EXPECT_LE(frames, GetParam().ReadFrames);
    Say("reading");

    std::atomic<bool> walking = true;
    std::vector<std::thread> writers;
    for (const char letter : {'x', 'y'}) {
        writers.emplace_back([&, letter] {
            for (uint32_t i = 0; walking; i = (i + 1) % 50'000) {
                file.Write(letter + std::to_string(i), Data(i));
                if (i % 3 == 0) {
                    file.Delete(letter + std::to_string(i / 2));
                }
            }
        });
    }
    std::vector<bool> seen(kRecords);
    uint32_t found = 0;
    for (const std::string_view key : file.Keys()) {
        if (key.size() == 15) {
            const uint32_t number = static_cast<uint32_t>(std::stoul(std::string(key)));
            EXPECT_FALSE(seen[number]) << number;
            seen[number] = true;
            ++found;
        }
    }
    walking = false;
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_EQ(found, kRecords);
    Say("walking");
    for (const char letter : {'x', 'y'}) {
        for (uint32_t i = 0; i < 50'000; ++i) {
            file.Delete(letter + std::to_string(i));
        }
    }
    for (uint32_t i = 0; i < kRecords / 20 * 19; ++i) {
        ASSERT_TRUE(file.Delete(Key(numbers[i])));
    }
    Say("deleting");
    file.Close();
    const qx_check::Report small = Settle("settling small");
    EXPECT_EQ(small.recordCount, kRecords / 20);
    // Groups of fewer frames are counted in full, so the file does not shrink quite as far as its records. The frames
    // of what is gone are free; the file is cut back to the last one that is not.
    EXPECT_LT(small.header.modulo, full.header.modulo / 10);
    EXPECT_LE(small.highWater, full.highWater);
    EXPECT_LE(small.chainFrames, full.chainFrames / 20);
}

INSTANTIATE_TEST_SUITE_P(Files, SlowGrowth, testing::Values(Limits{1024, 1.7}, Limits{4096, 1.3}));

}  // namespace
}  // namespace qx_test
