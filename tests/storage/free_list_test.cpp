// The free-frame list against a model that is nothing but a set of numbers, and every state of it on disk against the
// byte checker.
#include "storage/free_list.h"

#include <filesystem>
#include <iterator>
#include <random>
#include <set>

#include "checker/bytes.h"
#include "storage/operation_context.h"
#include "support/file_test.h"
#include "support/test_seed.h"

namespace qx_test {
namespace {

using qx::FreeList;

class FreeListTest : public FileTest {
  protected:
    void OpenList(uint32_t frameSize) {
        if (file_ != kNone) {
            ASSERT_TRUE(Close(file_));
            ASSERT_TRUE(Delete("F"));
        }
        file_ = CreateAndOpen("F", FixedFile(1, frameSize));
        frameSize_ = frameSize;
        free_.clear();
        highWater_ = 1;
    }

    // One call's work on the list, committed.
    template <class Work>
    void Change(Work&& work) {
        const qx::PrimaryAttachment attachment(Record(file_));
        const qx::CounterLevels levels{.File = &Record(file_).Counters};
        qx::OperationContext context(Record(file_), levels);
        work(context);
        context.List.Commit();
    }

    // Takes a frame and writes it, as a group would.
    uint32_t Take(qx::OperationContext& context, uint32_t near) {
        const uint32_t frame = context.List.Allocate(near);
        uint8_t* bytes = context.Output.Place.Buffer;
        std::fill_n(bytes, frameSize_, uint8_t{0});
        qx::StartOverflowFrame(bytes, 0);
        WriteFrame(context, qx::WhichFile::Overflow, frame, frameSize_, bytes);
        if (frame == highWater_) {
            ++highWater_;
        } else {
            EXPECT_EQ(free_.erase(frame), 1U) << frame << " was not free";
        }
        return frame;
    }

    void GiveBack(qx::OperationContext& context, uint32_t frame) {
        context.List.Free(frame);
        EXPECT_TRUE(free_.insert(frame).second);
    }

    // The closest of all free frames; what the list chooses while it has them all in frame 0.
    uint32_t Closest(uint32_t near) const {
        const auto above = free_.upper_bound(near);
        const uint32_t upper = above == free_.end() ? highWater_ : *above;
        if (above == free_.begin()) {
            return upper;
        }
        const uint32_t lower = *std::prev(above);
        return near - lower < upper - near ? lower : upper;
    }

    // Frames that the model has in use.
    std::vector<uint32_t> InUse() const {
        std::vector<uint32_t> frames;
        for (uint32_t frame = 1; frame < highWater_; ++frame) {
            if (free_.count(frame) == 0) {
                frames.push_back(frame);
            }
        }
        return frames;
    }

    // After a commit: nothing free is left at the end of the file, and the bytes say exactly what the model says.
    qx_check::Report Compare() {
        while (free_.erase(highWater_ - 1) != 0) {
            --highWater_;
        }
        qx_check::Options options;
        options.allowLeakedFrames = true;  // frames in use are in no group
        const qx_check::Report report = qx_check::CheckFile(Path("F"), options);
        EXPECT_TRUE(report.Clean()) << report.problems.front();
        EXPECT_EQ(report.highWater, highWater_);
        EXPECT_EQ(report.freeFrames, free_.size());
        EXPECT_EQ(report.leakedFrames, InUse().size());
        const uint64_t length = highWater_ == 1 ? 0 : uint64_t{highWater_} * frameSize_;
        EXPECT_EQ(ReadHashedFile(Path("F")).Overflow.size(), length);
        return report;
    }

    uint32_t file_ = kNone;
    uint32_t frameSize_ = 0;
    uint32_t highWater_ = 1;
    std::set<uint32_t> free_;
};

TEST_F(FreeListTest, ChoosesTheClosestFrame) {
    const std::pair<uint32_t, uint32_t> nearAndChosen[] = {{21, 20}, {30, 40}, {29, 20}, {31, 40}, {0, 9},
                                                           {9, 9},   {39, 40}, {40, 40}, {44, 40}, {45, 50}};
    for (const auto& [near, chosen] : nearAndChosen) {
        OpenList(256);
        Change([&](qx::OperationContext& context) {
            while (highWater_ < 50) {
                Take(context, 0);
            }
            for (const uint32_t frame : {9, 40, 20}) {
                GiveBack(context, frame);
            }
        });
        Compare();
        Change([&](qx::OperationContext& context) { EXPECT_EQ(Take(context, near), chosen) << "near " << near; });
        Compare();
    }
    OpenList(256);
    Change([&](qx::OperationContext& context) {
        EXPECT_EQ(Take(context, 0), 1U) << "the first frame of a file";
        EXPECT_EQ(Take(context, 1), 2U);
    });
    Compare();
}

TEST_F(FreeListTest, SpillsAndRefillsByHalves) {
    OpenList(1024);
    const auto expect = [&](uint32_t listFrames, size_t inFrameZero) {
        const qx_check::Report report = Compare();
        EXPECT_EQ(report.listFrames, listFrames);
        EXPECT_EQ(qx_check::Get16(reinterpret_cast<const uint8_t*>(ReadHashedFile(Path("F")).Overflow.data()) + 1),
                  inFrameZero + 1);
    };
    const auto free = [&](uint32_t from, uint32_t to) {
        Change([&](qx::OperationContext& context) {
            for (uint32_t frame = from; frame < to; ++frame) {
                GiveBack(context, frame);
            }
        });
    };
    Change([&](qx::OperationContext& context) {
        while (highWater_ < 1000) {
            Take(context, 0);
        }
    });
    free(1, 254);
    expect(1, 253);
    free(254, 255);
    expect(2, 253 - 127 + 1);
    free(255, 255 + 126);
    expect(2, 253);
    free(381, 382);
    expect(3, 127);

    // With 63 entries in frame 0, HighWater included, the next frame wanted pulls a list frame back.
    Change([&](qx::OperationContext& context) {
        for (int i = 0; i < 65; ++i) {
            Take(context, 381);
        }
    });
    expect(3, 62);
    Change([&](qx::OperationContext& context) { Take(context, 381); });
    expect(2, 62 + 127 - 1);

    // Everything given back leaves nothing.
    Change([&](qx::OperationContext& context) {
        for (const uint32_t frame : InUse()) {
            GiveBack(context, frame);
        }
    });
    Compare();
    EXPECT_EQ(highWater_, 1U);
}

TEST_F(FreeListTest, AgreesWithAModel) {
    std::mt19937_64 random(TestSeed());
    const auto below = [&random](size_t bound) { return static_cast<uint32_t>(random() % bound); };
    for (const uint32_t frameSize : {256U, 260U, 1024U}) {
        OpenList(frameSize);
        uint64_t longestList = 0;
        // Changes come in waves, so that the list grows to several list frames and shrinks to none again.
        const uint32_t wave = 4 * qx::ListGeometry(frameSize).Capacity;
        for (uint32_t round = 0; round < 60; ++round) {
            const bool growing = round / 5 % 2 == 0;
            Change([&](qx::OperationContext& context) {
                context.List.Load();
                std::vector<uint32_t> inUse = InUse();
                for (uint32_t step = wave / 8 + below(wave / 4); step > 0; --step) {
                    if (below(10) < (growing ? 9U : 1U)) {
                        const uint32_t near = below(4) == 0 ? 0 : below(highWater_ + 5);
                        const bool allInFrameZero = context.List.Frame().Next() == 0;
                        const uint32_t closest = Closest(near);
                        const uint32_t taken = Take(context, near);
                        if (allInFrameZero) {
                            EXPECT_EQ(taken, closest) << "near " << near;
                        }
                        inUse.push_back(taken);
                    } else if (!inUse.empty()) {
                        std::swap(inUse[below(inUse.size())], inUse.back());
                        GiveBack(context, inUse.back());
                        inUse.pop_back();
                    }
                }
            });
            longestList = std::max(longestList, Compare().listFrames);
            ASSERT_FALSE(HasFailure()) << "frame size " << frameSize << ", round " << round;
        }
        Change([&](qx::OperationContext& context) {
            for (const uint32_t frame : InUse()) {
                GiveBack(context, frame);
            }
        });
        Compare();
        EXPECT_EQ(highWater_, 1U);
        EXPECT_GE(longestList, 3U);
        std::cout << "frame size " << frameSize << ": up to " << longestList << " list frames\n";
    }
}

// A list frame, as a test wants it.
struct ListBytes {
    uint32_t Frame = 0;
    uint32_t Count = 0;
    uint32_t Next = 0;
    std::vector<uint32_t> Entries;
};

TEST_F(FreeListTest, ADamagedListGivesNothingAway) {
    constexpr uint32_t kFrames = 200;
    const auto numbers = [](uint32_t from, uint32_t count) {
        std::vector<uint32_t> descending;
        for (uint32_t i = 0; i < count; ++i) {
            descending.push_back(from - i);
        }
        return descending;
    };
    const auto withHighWater = [](uint32_t highWater, std::vector<uint32_t> entries) {
        entries.insert(entries.begin(), highWater);
        return entries;
    };
    struct Case {
        const char* Name;
        std::vector<ListBytes> Frames;
        uint32_t Frees = 0;  // frames given back; one is taken otherwise
    };
    const ListBytes good = {0, 2, 0, {kFrames, 50}};
    const ListBytes full = {0, 62, 150, withHighWater(kFrames, numbers(80, 61))};
    const ListBytes low = {0, 2, 150, {kFrames, 50}};
    const Case cases[] = {
        {"no entries", {{0, 0, 0, {kFrames}}}},
        {"more entries than fit", {{0, 63, 0, withHighWater(kFrames, numbers(100, 61))}}},
        {"all the entries that can be counted", {{0, 0xFFFF, 0, {kFrames, 50}}}},
        {"HighWater 0", {{0, 1, 0, {0}}}},
        {"HighWater cannot be raised", {{0, 1, 0, {0xFFFFFFFF}}}},
        {"HighWater beyond the file", {{0, 1, 0, {kFrames + 1}}}},
        {"HighWater far beyond the file", {{0, 1, 0, {0xFFFFFFF0}}}},
        {"HighWater far beyond the file and a free frame before it", {{0, 2, 0, {1000000, 999999}}}, 1},
        {"free frame far beyond the file", {{0, 3, 0, {1000000, 999999, 50}}}},
        {"HighWater below a free frame", {{0, 2, 0, {50, 50}}}},
        {"free frames not in order", {{0, 3, 0, {kFrames, 50, 60}}}},
        {"a free frame twice", {{0, 3, 0, {kFrames, 50, 50}}}},
        {"frame 0 free", {{0, 2, 0, {kFrames, 0}}}},
        {"given back though free", {good}, 2},
        {"given back though beyond the end", {{0, 1, 0, {2}}}, 1},
        {"next list frame beyond the file", {{0, 2, kFrames + 5, {kFrames, 50}}}},
        {"next list frame is a group's", {low}},
        {"list frame with too few entries", {low, {150, 30, 0, numbers(150, 30)}}},
        {"list frame without its own number first", {low, {150, 31, 0, numbers(149, 31)}}},
        {"list frame not in order", {low, {150, 31, 0, withHighWater(150, numbers(151, 30))}}},
        {"list frames share a number with frame 0", {low, {150, 31, 0, withHighWater(150, numbers(79, 30))}}},
        {"list frames in a circle, refilled", {low, {150, 31, 150, numbers(150, 31)}}, 0},
        {"list frames in a circle, spilled into", {full, {150, 31, 150, numbers(150, 31)}}, 1},
    };
    for (const auto& [name, frames, frees] : cases) {
        SCOPED_TRACE(name);
        OpenList(256);
        Change([&](qx::OperationContext& context) {
            while (highWater_ < kFrames) {
                Take(context, 0);
            }
        });
        std::string overflow = ReadHashedFile(Path("F")).Overflow;
        for (const ListBytes& list : frames) {
            auto* at = reinterpret_cast<uint8_t*>(overflow.data()) + size_t{256} * list.Frame;
            at[0] = 14;
            qx_check::Put16(at + 1, static_cast<uint16_t>(list.Count));
            qx_check::Put32(at + 3, list.Next);
            for (size_t i = 0; i < list.Entries.size(); ++i) {
                qx_check::Put32(at + 7 + 4 * i, list.Entries[i]);
            }
        }
        WriteWholeFile(Path("F") + ".OV", overflow);
        std::vector<uint32_t> taken;
        const Status status = Raised([&] {
            Change([&](qx::OperationContext& context) {
                for (uint32_t i = 0; i < frees; ++i) {
                    context.List.Free(50);
                }
                // One that is in order so far may be used up to the point where it no longer is.
                for (int i = 0; frees == 0 && i < 40; ++i) {
                    taken.push_back(context.List.Allocate(0));
                }
            });
        });
        const bool unreadable = status == Status{107, 2, 1};
        EXPECT_TRUE(status == (Status{1003, 2, 1}) || unreadable) << testing::PrintToString(status);
        EXPECT_EQ(std::set(taken.begin(), taken.end()).size(), taken.size()) << "a frame was given away twice";
        EXPECT_EQ(std::filesystem::file_size(Path("F") + ".OV"), overflow.size());
        ExpectNothingHeld();
    }
}

}  // namespace
}  // namespace qx_test
