// Growing and shrinking by one group at a time: what moves, when it happens, and what stays as it is.
#include <gtest/gtest.h>

#include "checker/bytes.h"
#include "records/resize_case.h"
#include "support/test_seed.h"

namespace qx_test {
namespace {

// The chain of a group as it lies in the files: its frames and their bytes, without the part of frame 0 that is the
// file's header.
std::string ChainOf(const FileBytes& bytes, uint32_t frameSize, uint32_t group) {
    std::string chain = bytes.Primary.substr(size_t{group} * frameSize, frameSize);
    uint32_t link = qx_check::Get32(reinterpret_cast<const uint8_t*>(chain.data()) + 1);
    if (group == 0) {
        chain.erase(0, 32);
    }
    while (link != 0) {
        const std::string frame = bytes.Overflow.substr(size_t{link} * frameSize, frameSize);
        chain += std::to_string(link) + frame;
        link = qx_check::Get32(reinterpret_cast<const uint8_t*>(frame.data()) + 1);
    }
    return chain;
}

uint32_t StampOf(const FileBytes& bytes, uint32_t frameSize, uint32_t group) {
    return qx_check::Get32(reinterpret_cast<const uint8_t*>(bytes.Primary.data()) + size_t{group} * frameSize + 9);
}

// What the step makes of the groups: those who do not share records with the last one stay as they are.
Groups AfterStep(Groups groups, const Step& step) {
    if (step.To < step.From) {
        const std::vector<Item> last = groups.back();
        groups.pop_back();
        for (const Item& record : last) {
            groups[GroupOf(record.key, step.To)].push_back(record);
        }
        return groups;
    }
    std::vector<Item> last;
    for (const uint32_t source : step.Others) {
        const std::vector<Item> all = std::move(groups[source]);
        groups[source].clear();
        for (const Item& record : all) {
            (GroupOf(record.key, step.To) == source ? groups[source] : last).push_back(record);
        }
    }
    groups.push_back(last);
    return groups;
}

class ResizeStep : public ResizeTest, public testing::WithParamInterface<Step> {};

TEST_P(ResizeStep, MovesWhatTheGroupRuleMoves) {
    const Step& step = GetParam();
    const bool grows = step.To > step.From;
    std::mt19937_64 random(TestSeed());
    constexpr Content kContents[] = {{1024, 10, 100}, {256, 300, 3000}, {1000, 300, 5000}, {4096, 100, 20'000}};
    for (int round = 0; round < 40; ++round) {
        const Brink brink = FindBrink(random, step, kContents[round % std::size(kContents)]);
        const uint32_t frameSize = brink.Shape.frameSize;
        SCOPED_TRACE(std::to_string(round));
        const uint32_t file = OpenBuilt(brink.Shape, grows ? brink.Records : With(brink.Records, brink.Trigger));
        ASSERT_EQ(Settled(file), step.From);
        const FileBytes before = ReadHashedFile(Path(kFile));
        Groups due = Distribute(grows ? With(brink.Records, brink.Trigger) : brink.Records, step.From);
        due = AfterStep(std::move(due), step);
        ASSERT_TRUE(grows ? Put(file, brink.Trigger.key, brink.Trigger.data) : Erase(file, brink.Trigger.key));
        ASSERT_EQ(Settled(file), step.To);
        for (const Item& record : brink.Records) {
            ASSERT_TRUE(Get(file, record.key) == record.data) << record.key;
        }
        ASSERT_TRUE(Close(file));
        ASSERT_TRUE(StoredGroups() == due);

        const FileBytes after = ReadHashedFile(Path(kFile));
        EXPECT_EQ(after.Primary.size(), size_t{step.To} * frameSize);
        for (uint32_t group = 0; group < std::min(step.From, step.To); ++group) {
            const bool stamped = group == 0 || step.Touches(group);
            EXPECT_EQ(StampOf(after, frameSize, group), stamped ? step.To : step.From) << group;
            if (!step.Touches(group) && group != GroupOf(brink.Trigger.key, step.From)) {
                EXPECT_EQ(ChainOf(after, frameSize, group), ChainOf(before, frameSize, group)) << group;
            }
        }
        if (grows) {
            EXPECT_EQ(StampOf(after, frameSize, step.Last()), step.To);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Steps, ResizeStep,
                         testing::Values(Step{1, 2, {0}}, Step{2, 3, {0, 1}}, Step{3, 4, {0, 1, 2}}, Step{4, 5, {0, 2}},
                                         Step{5, 6, {1, 3}}, Step{6, 7, {0, 2, 4}}, Step{12, 13, {0, 4, 8}},
                                         Step{15, 16, {3, 7, 11}}, Step{2, 1, {0}}, Step{3, 2, {0, 1}},
                                         Step{4, 3, {0, 1, 2}}, Step{5, 4, {0, 2}}, Step{7, 6, {0, 2, 4}},
                                         Step{13, 12, {0, 4, 8}}, Step{16, 15, {3, 7, 11}}),
                         [](const auto& test) {
                             return std::to_string(test.param.From) + "To" + std::to_string(test.param.To);
                         });

TEST_F(ResizeTest, KnownKeysMove) {
    const Item moves{"12345", std::string(300, 'm')};
    const Item stays{"A", std::string(300, 's')};
    qx_check::FileShape shape;
    shape.modulo = 4;
    std::vector<Item> records = {moves, stays};
    for (uint32_t i = 0; LoadOf(Distribute(records, 4), shape) <= GrowLimit(shape, 4); ++i) {
        records.push_back({std::to_string(i), std::string(100, 'd')});
    }
    const uint32_t file = OpenBuilt(shape, records);
    EXPECT_EQ(Settled(file), 5U) << "a file that is too full already grows when it is opened";
    EXPECT_EQ(GroupOfKey(file, moves.key), 4U);
    EXPECT_EQ(GroupOfKey(file, stays.key), 1U);
    ASSERT_TRUE(Close(file));
    const Groups groups = StoredGroups();
    EXPECT_EQ(std::count(groups[4].begin(), groups[4].end(), moves), 1);
    EXPECT_EQ(std::count(groups[1].begin(), groups[1].end(), stays), 1);
}

// One group has all overflow frames, and nearly every one of them ends within a key: the step goes back a frame for
// each of those.
TEST_F(ResizeTest, KeysThatCrossFrames) {
    qx_check::FileShape shape;
    shape.frameSize = 256;
    std::vector<Item> records;
    for (int i = 0; i < 200; ++i) {
        records.push_back({std::string(180, 'k') + std::to_string(i), "data"});
    }
    const uint32_t file = OpenBuilt(shape, records);
    EXPECT_GT(Settled(file), 50U);
    ASSERT_TRUE(Close(file));
    EXPECT_EQ(StoredRecords(kFile).size(), records.size());
    EXPECT_EQ(Problems(kFile), "");
}

// Every group holds one record, whose length sets the load to the byte.
TEST_F(ResizeTest, BeginsOneByteBeyondTheLimit) {
    constexpr uint32_t kModulo = 6;
    for (const uint16_t sizeLock : std::initializer_list<uint16_t>{0, 1, 2, 3}) {
        for (const auto& [threshold, frameSize] : {std::pair{204, 1024}, {25, 1000}, {255, 256}, {100, 70'000}}) {
            for (const bool grows : {true, false}) {
                qx_check::FileShape shape;
                shape.modulo = kModulo;
                shape.frameSize = static_cast<uint32_t>(frameSize);
                shape.threshold = static_cast<uint8_t>(threshold);
                shape.sizeLock = sizeLock;
                const uint64_t limit = grows ? GrowLimit(shape, kModulo) : ShrinkLimit(shape, kModulo);
                std::vector<Item> records;
                for (uint32_t group = 0; group < kModulo; ++group) {
                    const uint64_t share = limit * (group + 1) / kModulo - limit * group / kModulo;
                    const uint64_t header = group == 0 ? shape.headerLength : kPrimaryHeader;
                    records.push_back({KeysOf(group, kModulo, 1).front(), {}});
                    records.back().data.resize(share - header - 1 - RecordBytes(records.back()));
                    while (header + 1 + RecordBytes(records.back()) > share) {
                        records.back().data.pop_back();
                    }
                }
                SCOPED_TRACE(testing::Message()
                             << "size lock " << sizeLock << ", threshold " << threshold << ", frames of " << frameSize
                             << (grows ? ", growing" : ", shrinking"));
                ASSERT_EQ(LoadOf(Distribute(records, kModulo), shape), limit);
                const uint32_t file = OpenBuilt(shape, records);
                Worker().AwaitTurn();
                EXPECT_EQ(HeaderOf(file)->Modulo, kModulo) << "at the limit";
                Item& last = records.back();
                last.data.resize(grows ? last.data.size() + 1 : last.data.size() - 1);
                ASSERT_TRUE(Put(file, last.key, last.data));
                const uint32_t due = grows && sizeLock <= 1    ? kModulo + 1
                                     : !grows && sizeLock == 0 ? kModulo - 1
                                                               : kModulo;
                Worker().AwaitTurn();
                EXPECT_EQ(HeaderOf(file)->Modulo, due) << "beyond the limit";
                ASSERT_TRUE(Close(file));
                StoredGroups();
            }
        }
    }
}

// Growing to many groups and back to one, with chains; everything that was taken is given back.
TEST_F(ResizeTest, GoesAllTheWayAndBack) {
    CreateOptions options{};
    options.Size = sizeof options;
    options.FrameSize = 256;
    const uint32_t file = CreateAndOpen(kFile, options);
    std::mt19937_64 random(TestSeed());
    std::vector<Item> records;
    for (size_t i = 0; i < 3000; ++i) {
        records.push_back(RandomRecord(random, {256, 200, 700}, i));
        ASSERT_TRUE(Put(file, records.back().key, records.back().data));
    }
    const FileHeaderRecord full = Worker().Settle(file);
    EXPECT_GT(full.Modulo, 500U);
    const qx::CounterSet& counters = Record(file).Counters;
    EXPECT_EQ(counters.Value(qx::Counter::ExpandModulos) - counters.Value(qx::Counter::ContractModulos),
              full.Modulo - 1);
    ASSERT_TRUE(Flush());
    EXPECT_EQ(Problems(kFile, {.openProcesses = 1}), "");
    std::shuffle(records.begin(), records.end(), random);
    for (size_t i = 0; i < records.size(); ++i) {
        if (i == records.size() / 2) {
            EXPECT_LT(Settled(file), full.Modulo * 3 / 4);
            ASSERT_TRUE(Close(file));
            EXPECT_EQ(StoredRecords(kFile).size(), records.size() / 2);
            EXPECT_EQ(Problems(kFile), "");
            ASSERT_EQ(Open(kFile), file);
        }
        ASSERT_TRUE(Erase(file, records[i].key));
    }
    EXPECT_EQ(Settled(file), 1U);
    ASSERT_TRUE(Close(file));
    EXPECT_EQ(Problems(kFile), "");
    const FileBytes bytes = ReadHashedFile(Path(kFile));
    EXPECT_EQ(bytes.Primary.size(), 256U);
    EXPECT_EQ(bytes.Overflow.size(), 0U);
}

// Whatever holds the number of groups still; the file goes on when the last hold has gone.
TEST_F(ResizeTest, WaitsForHolds) {
    CreateOptions options{};
    options.Size = sizeof options;
    const uint32_t file = CreateAndOpen(kFile, options);
    const auto fill = [&](int from) {
        for (int i = from; i < from + 100; ++i) {
            ASSERT_TRUE(Put(file, std::to_string(i), std::string(90, 'd')));
        }
    };
    Worker();
    ASSERT_TRUE(LockGroup(file, kSelectHold));
    ASSERT_TRUE(LockGroup(file, kSelectHold));
    fill(0);
    Worker().AwaitTurn();
    EXPECT_EQ(HeaderOf(file)->Modulo, 1U) << "two select holds";
    ASSERT_TRUE(UnlockGroup(file, kSelectHold));
    Worker().AwaitTurn();
    EXPECT_EQ(HeaderOf(file)->Modulo, 1U) << "one select hold";
    ASSERT_TRUE(UnlockGroup(file, kSelectHold));
    const uint32_t grown = Settled(file);
    EXPECT_GT(grown, 10U);

    ASSERT_TRUE(Run([&](StatusRecord* status) { return QXReadNextKeyIdGroup(file, kData, status); }));
    fill(100);
    Worker().AwaitTurn();
    EXPECT_EQ(HeaderOf(file)->Modulo, grown) << "a walk";
    const uint32_t other = Open(kFile);
    ASSERT_TRUE(LockGroup(other, kSelectHold));
    ASSERT_TRUE(Run([&](StatusRecord* status) { return QXClearSelect(file, status); }));
    Worker().AwaitTurn();
    EXPECT_EQ(HeaderOf(file)->Modulo, grown) << "a hold of another handle";
    ASSERT_TRUE(Close(other));
    EXPECT_GT(Settled(file), grown + 10) << "closing the handle gives its hold up";
    ASSERT_TRUE(Close(file));
    EXPECT_EQ(Problems(kFile), "");
}

// Stopping the library ends what the worker is doing at the next step, with a long row of them still to be done.
TEST_F(ResizeTest, StopsAfterTheStepUnderWay) {
    CreateOptions options{};
    options.Size = sizeof options;
    options.FrameSize = 256;
    const auto holdAnd = [&](bool grows) {
        const uint32_t file = Open(kFile);
        EXPECT_TRUE(LockGroup(file, kSelectHold));
        for (int i = 0; i < 2000; ++i) {
            EXPECT_TRUE(grows ? Put(file, std::to_string(i), std::string(90, 'd')) : Erase(file, std::to_string(i)));
        }
        EXPECT_TRUE(UnlockGroup(file, kSelectHold));
        StopLibrary();
        EXPECT_EQ(Problems(kFile), "");
        EXPECT_EQ(StoredRecords(kFile).size(), grows ? 2000U : 0U);
        StartLibrary();
    };
    ASSERT_TRUE(Create(kFile, options));
    holdAnd(true);
    const uint32_t file = Open(kFile);
    EXPECT_GT(Settled(file), 400U) << "goes on when it is opened again";
    ASSERT_TRUE(Close(file));
    StopWitness();
    holdAnd(false);
    EXPECT_EQ(Settled(Open(kFile)), 1U);
}

// A re-count that was finished stays so while the file grows and shrinks, and what it counted stays exact.
TEST_F(ResizeTest, KeepsAFinishedRecount) {
    CreateOptions options{};
    options.Size = sizeof options;
    const uint32_t file = CreateAndOpen(kFile, options);
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(Put(file, std::to_string(i), std::string(90, 'd')));
    }
    const uint32_t modulo = Settled(file);
    EXPECT_EQ(HeaderOf(file)->ModuloVerified, 0U);
    while (Run([&](StatusRecord* status) { return QXReadNextKeyIdGroup(file, kData, status); })) {
    }
    EXPECT_EQ(HeaderOf(file)->ModuloVerified, 1U);
    for (int i = 100; i < 300; ++i) {
        ASSERT_TRUE(Put(file, std::to_string(i), std::string(90, 'd')));
    }
    EXPECT_GT(Settled(file), modulo * 2);
    EXPECT_EQ(HeaderOf(file)->ModuloVerified, 1U) << "grown";
    for (int i = 0; i < 280; ++i) {
        ASSERT_TRUE(Erase(file, std::to_string(i)));
    }
    EXPECT_LT(Settled(file), modulo);
    EXPECT_EQ(HeaderOf(file)->ModuloVerified, 1U) << "shrunk";
    // The finished re-count is what another walk ends with.
    while (Run([&](StatusRecord* status) { return QXReadNextKeyIdGroup(file, kData, status); })) {
    }
    EXPECT_EQ(HeaderOf(file)->RecordCount, 20U);
    ASSERT_TRUE(Close(file));
    EXPECT_EQ(Problems(kFile), "");
}

// Another process may change the number of groups between two walks, and a read may be counted, too late, when no walk
// is under way: the next walk counts every group again.
TEST_F(ResizeTest, RecountsFromTheFirstGroup) {
    qx_check::FileShape shape;
    shape.modulo = 3;
    shape.sizeLock = 1;
    std::vector<Item> records;
    const auto add = [&] {
        for (int i = 0; i < 40; ++i) {
            // A walk lets the file shrink again: it holds as much as so many groups should.
            records.push_back({std::to_string(records.size()), std::string(45, 'd')});
        }
    };
    const auto walk = [&](uint32_t file) {
        while (Run([&](StatusRecord* status) { return QXReadNextKeyIdGroup(file, kData, status); })) {
        }
    };
    add();
    const uint32_t file = OpenBuilt(shape, records);
    walk(file);
    EXPECT_EQ(HeaderOf(file)->ModuloVerified, 1U);
    add();
    shape.modulo = 6;
    const qx_check::BuiltFile changed = qx_check::BuildFile(shape, records);
    WriteWholeFile(Path(kFile) + ".LK", std::string(changed.primary.begin(), changed.primary.end()));
    walk(file);
    EXPECT_EQ(HeaderOf(file)->RecordCount, records.size());
    ASSERT_TRUE(Close(file));
    EXPECT_EQ(Problems(kFile), "");

    const uint32_t again = Open(kFile);
    Record(again).Counts.Tally(0, shape.modulo, kPrimaryHeader, 1000);
    walk(again);
    ASSERT_TRUE(Close(again));
    EXPECT_EQ(Problems(kFile), "");
}

}  // namespace
}  // namespace qx_test
