// Steps in which a call to the system fails. Nobody is told; what is left must be a file that can be worked on.
#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <thread>

#include "records/resize_case.h"
#include "records/resize_writer.h"
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
        for (const std::string& problem : Damage()) {
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
    }

    // Changes records and deletes the others, looks for all of them, as a process that believes in `believed` groups if
    // that is given, lets the file grow to twice the size, if that is wanted, and go back, and puts the records in
    // again: what the step has left must not show. The load may be off, with nothing believed too far for the file to
    // follow.
    void GoBackAndForth(uint32_t file, const Step& step, std::optional<uint32_t> believed, bool grows,
                        const std::vector<Item>& records) {
        EXPECT_TRUE(LockGroup(file, kSelectHold));
        for (size_t i = 0; i < records.size(); ++i) {
            EXPECT_TRUE(i % 2 == 0 ? Put(file, records[i].key, "changed") : Erase(file, records[i].key));
        }
        const auto compare = [&](bool knows) {
            for (size_t i = 0; i < records.size(); ++i) {
                if (!knows) {
                    Record(file).Modulo = *believed;
                }
                EXPECT_EQ(Get(file, records[i].key), i % 2 == 0 ? std::optional("changed") : std::nullopt);
            }
        };
        compare(!believed);
        EXPECT_TRUE(UnlockGroup(file, kSelectHold));
        const uint32_t further = grows ? 25 * step.To : 0;
        for (uint32_t i = 0; i < further; ++i) {
            EXPECT_TRUE(Put(file, "further" + std::to_string(i), std::string(Record(file).FrameSize / 10, 'f')));
        }
        EXPECT_TRUE(Settled(file) > 2 * step.To || !grows || !believed);
        compare(true);
        for (uint32_t i = 0; i < further; ++i) {
            EXPECT_TRUE(Erase(file, "further" + std::to_string(i)));
        }
        for (size_t i = 0; i < records.size(); i += 2) {
            EXPECT_TRUE(Erase(file, records[i].key));
        }
        EXPECT_TRUE(Settled(file) < step.To || step.To <= 2 || !believed);
        for (const Item& record : records) {
            EXPECT_FALSE(Get(file, record.key));
            EXPECT_TRUE(Put(file, record.key, record.data));
        }
        Settled(file);
        EXPECT_TRUE(Close(file));
        EXPECT_TRUE(IsSound());
    }

    // Whether the file can be worked on: nothing is wrong with it but records that have moved from where they are,
    // stamps that say so, and a frame of the primary file that could not be cut off.
    bool IsSound() {
        const auto left = testing::AnyOf(testing::HasSubstr("belongs to group"), testing::HasSubstr("ModuloStamp"),
                                         testing::HasSubstr("is not Modulo"));
        return testing::Matches(testing::Each(left))(Damage());
    }

    // Whether no key is in the file but those of these records. A group that was half rewritten may hold the beginning
    // of one record and the end of another, and cannot be split any more.
    bool HoldsOnly(const std::vector<Item>& records) {
        std::set<std::string> keys;
        for (const Item& record : records) {
            keys.insert(record.key);
        }
        bool others = false;
        qx_check::CheckFile(Path(kFile), kLenient, [&](std::string_view key, std::string_view, uint32_t) {
            others = others || !keys.contains(std::string(key));
        });
        return !others;
    }

    std::vector<std::string> Damage() { return qx_check::CheckFile(Path(kFile), kLenient).problems; }

    FileBytes before_;  // the step

  private:
    static constexpr qx_check::Options kLenient{.checkFill = false, .allowLeakedFrames = true, .allowCountDrift = true};

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

// Every call of a step fails once, or every write from one on, as if the process had been killed. Nothing is lost, but
// from the one group of several frames that a split was rewriting. What is left can be worked on.
TEST_F(ResizeFailure, LosesNoMoreThanItMust) {
    std::mt19937_64 random(TestSeed());
    struct Fault {
        Call Of;
        bool Lasting = false;
    };
    for (const Step& step : kSteps) {
        const bool grows = step.To > step.From;
        for (const Content& content : kContents) {
            const Brink brink = FindBrink(random, step, content);
            const Groups groups = Distribute(With(brink.Records, brink.Trigger), step.From);
            const std::vector<Item> records = grows ? With(brink.Records, brink.Trigger) : brink.Records;
            for (const Fault& fault :
                 {Fault{Call::Read}, {Call::Write}, {Call::Write, true}, {Call::GetSize}, {Call::SetSize}}) {
                bool failed = true;
                for (uint64_t nth = 1; failed; ++nth) {
                    SCOPED_TRACE(testing::Message()
                                 << step.From << " to " << step.To << ", frames of " << content.FrameSize << ", "
                                 << NameOf(fault.Of) << ' ' << nth << (fault.Lasting ? " and all after it" : ""));
                    uint64_t calls = 0;
                    const uint32_t file = StepWith(step, brink, [&] {
                        Faults.Fail(fault.Of, nth, qx::SystemError::Other, fault.Lasting);
                        calls = Faults.Count(fault.Of);
                    });
                    failed = Faults.Count(fault.Of) >= calls + nth;
                    EXPECT_TRUE(failed || Record(file).Modulo == step.To);
                    ExpectNothingHeld();
                    std::set<uint32_t> harmed;
                    for (const Item& record : records) {
                        if (Get(file, record.key) != record.data) {
                            const uint32_t group = GroupOf(record.key, step.From);
                            harmed.insert(group);
                            EXPECT_TRUE(grows && step.Touches(group) && GroupOf(record.key, step.To) == group &&
                                        BytesOf(groups, group, brink.Shape) > content.FrameSize)
                                << record.key;
                        }
                    }
                    EXPECT_LE(harmed.size(), 1U);
                    if (harmed.empty() && IsSound() && (fault.Lasting || Record(file).Modulo == step.To)) {
                        // Killed between the header and the stamps, a process leaves those as they were; and a group
                        // that cannot be split any more keeps the file from growing.
                        const bool followed = !fault.Lasting && HoldsOnly(records);
                        const auto believed = followed ? std::optional(step.From) : std::nullopt;
                        GoBackAndForth(file, step, believed, nth % 2 == 0, records);
                    } else {
                        EXPECT_TRUE(Close(file));
                        if (harmed.empty() && IsSound()) {
                            SettleAndCompare(step, records);
                        }
                    }
                    CheckFramesAndClear(content.FrameSize);
                }
            }
        }
    }
}

// A group that could not be written, at whatever call that was, leaves nothing in the stream that the next one is
// written with.
TEST_F(ResizeFailure, OneGroupDoesNotDisturbTheNext) {
    const uint32_t file = CreateAndOpen(kFile, FixedFile(2, 256));
    std::string key(600, 'k');
    while (GroupIn(2, key) != 0) {
        key += 'k';
    }
    const std::string other = KeysOf(0, 2, 1).front();
    ASSERT_TRUE(Put(file, other, std::string(100, 'd')));
    ASSERT_TRUE(Put(file, key, "data"));
    ASSERT_TRUE(Put(file, KeysOf(1, 2, 1).front(), std::string(1000, 'd')));
    {
        const qx::PrimaryAttachment attachment(Record(file));
        const qx::CounterLevels levels{.File = &Record(file).Counters};
        qx::OperationContext context(Record(file), levels);
        for (const uint64_t nth : {5, 5, 5, 4, 3, 2}) {
            const auto all = [](uint32_t, uint32_t, const qx::ModuloSplit&) { return true; };
            Faults.Fail(Call::Read, nth);
            EXPECT_EQ(Raised([&] { qx::RewriteGroup(context, 1, 2, all); })[0], 107U) << nth;
        }
        Faults.Clear();
        static const uint32_t dropped = qx::HashKey(other);
        const auto others = [](uint32_t hash, uint32_t, const qx::ModuloSplit&) { return hash != dropped; };
        EXPECT_EQ(Raised([&] { qx::RewriteGroup(context, 0, 2, others); }), kNothing);
        EXPECT_EQ(Raised([&] { context.List.Commit(); }), kNothing);
    }
    EXPECT_EQ(Get(file, key), "data");
    EXPECT_FALSE(Get(file, other));
    EXPECT_TRUE(Close(file));
    EXPECT_EQ(Problems(kFile, {.allowCountDrift = true}), "");
}

}  // namespace
}  // namespace qx_test
