// Steps in which a call to the system fails. Nobody is told; what is left must be a file that can be worked on.
#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

#include "records/resize_case.h"
#include "support/test_seed.h"

namespace qx_test {
namespace {

class ResizeFailure : public ResizeTest {
  protected:
    // Brings the file to the brink and over it, with `order` in force during the step alone.
    template <class Order>
    uint32_t StepWith(const Step& step, const Brink& brink, Order&& order) {
        const bool grows = step.To > step.From;
        const uint32_t file = OpenBuilt(brink.Shape, grows ? brink.Records : With(brink.Records, brink.Trigger));
        EXPECT_TRUE(LockGroup(file, kSelectHold));
        EXPECT_TRUE(grows ? Put(file, brink.Trigger.key, brink.Trigger.data) : Erase(file, brink.Trigger.key));
        EXPECT_TRUE(Flush());
        before_ = ReadHashedFile(Path(kFile));
        order();
        EXPECT_TRUE(UnlockGroup(file, kSelectHold));
        while (!Faults.Delivered() && Record(file).Modulo != step.To) {
            std::this_thread::yield();
        }
        AwaitEndOfStep(file);
        Faults.Clear();
        return file;
    }

    // No frame is used twice, unless the list of free frames is what could not be written, and the file is good for
    // anything again once it has been cleared.
    void CheckFramesAndClear(uint32_t frameSize) {
        const std::string list = ReadHashedFile(Path(kFile)).Overflow.substr(0, frameSize);
        const qx_check::Options lenient{.checkFill = false, .allowLeakedFrames = true, .allowCountDrift = true};
        for (const std::string& problem : qx_check::CheckFile(Path(kFile), lenient).problems) {
            if (!before_.Overflow.starts_with(list)) {
                EXPECT_EQ(problem.find("and in the free list"), std::string::npos) << problem;
            }
            EXPECT_EQ(problem.find("in a chain already"), std::string::npos) << problem;
        }
        const uint32_t file = Open(kFile);
        EXPECT_TRUE(Clear(file));
        EXPECT_TRUE(Put(file, "key", "data"));
        EXPECT_TRUE(Close(file));
        EXPECT_EQ(Problems(kFile), "");
    }

    void SettleAndCompare(const Step& step, const std::vector<Item>& records) {
        const uint32_t file = Open(kFile);
        EXPECT_EQ(Settled(file), step.To);
        for (const Item& record : records) {
            EXPECT_TRUE(Get(file, record.key) == record.data) << record.key;
        }
        EXPECT_TRUE(Close(file));
        const qx_check::Options lenient{.checkFill = false, .allowLeakedFrames = true};
        EXPECT_THAT(qx_check::CheckFile(Path(kFile), lenient).problems, testing::IsEmpty());
    }

    FileBytes before_;  // the step

  private:
    // A file whose step has failed is not queued again.
    static void AwaitEndOfStep(uint32_t file) {
        qx::ClaimMutex::Node node;
        while (!Record(file).StructureMutex.TryClaim(node)) {
            std::this_thread::yield();
        }
        Record(file).StructureMutex.Release(node);
    }
};

constexpr Content kContents[] = {{1024, 10, 100}, {256, 300, 2000}};
const Step kSteps[] = {{1, 2, {0}}, {6, 7, {0, 2, 4}}, {2, 1, {0}}, {7, 6, {0, 2, 4}}};

// A volume without room for what a step writes: the file stays as it is, and the step is made up for when there is
// room.
TEST_F(ResizeFailure, WithoutRoomTheFileStaysAsItIs) {
    std::mt19937_64 random(TestSeed());
    for (const Step& step : kSteps) {
        for (const Content& content : kContents) {
            SCOPED_TRACE(testing::Message() << step.From << " to " << step.To);
            const Brink brink = FindBrink(random, step, content);
            uint32_t file =
                StepWith(step, brink, [&] { Faults.Fail(Call::Write, 1, qx::SystemError::VolumeFull, true); });
            EXPECT_TRUE(ReadHashedFile(Path(kFile)) == before_);
            EXPECT_TRUE(Close(file));
            file = Open(kFile);
            EXPECT_EQ(Settled(file), step.To);
            EXPECT_TRUE(Close(file));
            EXPECT_EQ(Problems(kFile), "");
            EXPECT_EQ(StoredRecords(kFile).size(), brink.Records.size() + (step.To > step.From ? 1 : 0));
        }
    }
}

// Every call of a step fails once. Nothing is lost, but from groups of several frames that a split has rewritten in
// part. A merge that has failed can be made up for, and leaves no record twice.
TEST_F(ResizeFailure, LosesNoMoreThanItMust) {
    std::mt19937_64 random(TestSeed());
    for (const Step& step : kSteps) {
        const bool grows = step.To > step.From;
        for (const Content& content : kContents) {
            const Brink brink = FindBrink(random, step, content);
            const Groups groups = Distribute(With(brink.Records, brink.Trigger), step.From);
            const auto mayBeGone = [&](const std::string& key) {
                const uint32_t group = GroupOf(key, step.From);
                return grows && step.Touches(group) && BytesOf(groups, group, brink.Shape) > content.FrameSize;
            };
            for (const Call call : {Call::Read, Call::Write, Call::GetSize, Call::SetSize}) {
                bool failed = true;
                for (uint64_t nth = 1; failed; ++nth) {
                    SCOPED_TRACE(testing::Message() << step.From << " to " << step.To << ", frames of "
                                                    << content.FrameSize << ", " << NameOf(call) << ' ' << nth);
                    uint64_t calls = 0;
                    const uint32_t file = StepWith(step, brink, [&] {
                        Faults.Fail(call, nth);
                        calls = Faults.Count(call);
                    });
                    failed = Faults.Count(call) >= calls + nth;
                    EXPECT_TRUE(failed || Record(file).Modulo == step.To);
                    ExpectNothingHeld();
                    for (const Item& record : brink.Records) {
                        if (!mayBeGone(record.key)) {
                            EXPECT_TRUE(Get(file, record.key) == record.data) << record.key;
                        }
                    }
                    EXPECT_TRUE(Close(file));
                    if (!grows && call != Call::SetSize) {  // which leaves the primary file too long
                        SettleAndCompare(step, brink.Records);
                    }
                    CheckFramesAndClear(content.FrameSize);
                }
            }
        }
    }
}

}  // namespace
}  // namespace qx_test
