// QXReadNextKeyIdGroup, QXReadPreviousKeyIdGroup, QXClearSelect.
#include <gtest/gtest.h>

#include "checker/bytes.h"
#include "checker/file_builder.h"
#include "support/file_test.h"

namespace qx_test {
namespace {

constexpr uint32_t kList = 3;
constexpr uint32_t kPosition = 4;
constexpr Status kEndOfWalk{111, 0, 0};
constexpr const char* kFile = "WALK";

// How many keys each group has.
using Groups = std::vector<size_t>;

class WalkCalls : public FileTest {
  protected:
    // A file with such groups, opened.
    uint32_t MakeFile(const Groups& groups, const OpenOptions& options = {}) {
        const auto modulo = static_cast<uint32_t>(groups.size());
        keys_.clear();
        EXPECT_TRUE(Create(kFile, FixedFile(modulo)));
        const uint32_t file = OpenWith(options);
        for (uint32_t group = 0; group < modulo; ++group) {
            keys_.push_back(KeysOf(group, modulo, groups[group]));
            for (const std::string& key : keys_.back()) {
                EXPECT_TRUE(Put(file, key, "data of " + key));
            }
        }
        return file;
    }

    uint32_t OpenWith(OpenOptions options) {
        options.Size = sizeof options;
        return Open(kFile, options);
    }

    std::optional<std::string> Next(uint32_t file) {
        return Read([&](StatusRecord* status) { return QXReadNextKeyIdGroup(file, kList, status); });
    }
    std::optional<std::string> Previous(uint32_t file) {
        return Read([&](StatusRecord* status) { return QXReadPreviousKeyIdGroup(file, kList, status); });
    }
    bool ClearSelect(uint32_t file) {
        return Run([&](StatusRecord* status) { return QXClearSelect(file, status); });
    }

    // The keys of some groups, as a list.
    std::string ListOf(const std::vector<uint32_t>& groups, char delimiter = '\xFE') const {
        std::string list;
        for (const uint32_t group : groups) {
            for (const std::string& key : keys_[group]) {
                list += key + delimiter;
            }
        }
        return list;
    }

    // The groups that the position object names, if any.
    static std::vector<uint32_t> Position() {
        std::vector<uint32_t> words;
        for (size_t at = 0; at < Buffer(kPosition).size(); at += 4) {
            words.push_back(qx_check::Get32(reinterpret_cast<const uint8_t*>(Buffer(kPosition).data()) + at));
        }
        return words;
    }

  private:
    template <class Call>
    std::optional<std::string> Read(Call&& call) {
        Buffer(kList).clear();
        return Run(call) ? std::optional(Buffer(kList)) : std::nullopt;
    }

    std::vector<std::vector<std::string>> keys_;
};

// Each list of a whole walk holds the keys of the groups named.
TEST_F(WalkCalls, GatherGroupsAsTheHandleWantsThem) {
    using Lists = std::vector<std::vector<uint32_t>>;
    const struct {
        Groups Counts;
        uint32_t MinimumSize;
        bool Forward;
        Lists Due;
    } kCases[] = {
        {{2, 0, 1, 0, 1}, 0, true, {{0}, {1}, {2}, {3}, {4}}},
        {{2, 0, 1, 0, 1}, 1, true, {{0}, {1, 2}, {3, 4}}},
        {{2, 0, 1, 0, 1}, 1000, true, {{0, 1, 2, 3, 4}}},
        {{2, 0, 1, 0, 0}, 1, true, {{0}, {2}}},  // and the empty rest is the end
        {{0, 0, 0}, 1, true, {}},
        {{0, 0, 0}, 0, true, {{0}, {1}, {2}}},
        {{2, 0, 1, 0, 1}, 0, false, {{4}, {3}, {2}, {1}, {0}}},
        {{2, 0, 1, 0, 1}, 1000, false, {{4}, {2}, {0}}},
        {{0, 0, 1, 0, 1}, 1, false, {{4}, {2}}},
        {{0, 0, 0}, 1, false, {}},
        {{3}, 0, true, {{0}}},
        {{3}, 0, false, {{0}}},
    };
    int number = 0;
    for (const auto& [counts, minimumSize, forward, due] : kCases) {
        SCOPED_TRACE(number++);
        OpenOptions options{};
        options.SelectMinimumSize = minimumSize;
        const uint32_t file = MakeFile(counts, options);
        for (int round = 0; round < 2; ++round) {  // a walk that has ended begins again
            for (const std::vector<uint32_t>& groups : due) {
                EXPECT_EQ(forward ? Next(file) : Previous(file), ListOf(groups));
                EXPECT_EQ(Record(file).SelectCount, 1U);
            }
            EXPECT_EQ(forward ? Next(file) : Previous(file), std::nullopt);
            EXPECT_EQ(LastStatus(), kEndOfWalk);
            ExpectNothingHeld();
        }
        ASSERT_TRUE(Close(file));
        ASSERT_TRUE(Delete(kFile));
    }
}

TEST_F(WalkCalls, DelimitersAndTrimming) {
    OpenOptions options{};
    options.SelectDelimiter = ',';
    options.TrimLastDelimiter = 1;
    const uint32_t file = MakeFile({2, 0, 1}, options);
    std::string first = ListOf({0}, ',');
    first.pop_back();
    EXPECT_EQ(Next(file), first);
    EXPECT_EQ(Next(file), "");
    EXPECT_EQ(Next(file)->back(), ListOf({2}, ',').end()[-2]);
    // Turning back is possible at any time, up to the first group.
    EXPECT_EQ(Previous(file), "");
    EXPECT_EQ(Previous(file), first);
    EXPECT_EQ(Previous(file), std::nullopt);
    EXPECT_EQ(LastStatus(), kEndOfWalk);
}

TEST_F(WalkCalls, EndOfAWalk) {
    const uint32_t file = MakeFile({1, 1, 1});
    EXPECT_TRUE(ClearSelect(file)) << "without a walk";
    const uint32_t other = Open(kFile);
    EXPECT_TRUE(Next(file) && Next(other) && Next(other));
    EXPECT_EQ(Record(file).SelectCount, 2U) << "each handle has a walk of its own";
    EXPECT_TRUE(ClearSelect(file));
    EXPECT_EQ(Record(file).SelectCount, 1U);
    EXPECT_EQ(Next(file), ListOf({0}));
    EXPECT_EQ(Next(other), ListOf({2}));
    EXPECT_TRUE(Close(other));
    EXPECT_EQ(Record(file).SelectCount, 1U);
    EXPECT_TRUE(ClearSelect(file));
    ExpectNothingHeld();
}

TEST_F(WalkCalls, PositionsInAnObject) {
    OpenOptions options{};
    options.PositionObjectInUse = 1;
    options.PositionObject = kPosition;
    options.SelectMinimumSize = 1;
    Buffer(kPosition).clear();
    const uint32_t file = MakeFile({1, 0, 1, 1}, options);
    EXPECT_EQ(Next(file), ListOf({0}));
    EXPECT_EQ(Position(), (std::vector<uint32_t>{0, 0}));
    EXPECT_EQ(Next(file), ListOf({2}));
    EXPECT_EQ(Position(), (std::vector<uint32_t>{1, 2}));
    // Another handle goes on where the object stands, without a hold of its own.
    const uint32_t other = OpenWith(options);
    EXPECT_EQ(Next(other), ListOf({3}));
    EXPECT_EQ(Record(file).SelectCount, 1U);
    EXPECT_EQ(Next(file), std::nullopt);
    EXPECT_EQ(LastStatus(), kEndOfWalk);
    EXPECT_EQ(Position(), std::vector<uint32_t>());
    ExpectNothingHeld();
    // The object is what counts, not what the handle remembers.
    EXPECT_EQ(Previous(other), ListOf({3}));
    Buffer(kPosition).clear();
    EXPECT_EQ(Previous(other), ListOf({3}));
    EXPECT_TRUE(ClearSelect(other));
    EXPECT_EQ(Position(), (std::vector<uint32_t>{3, 3})) << "left alone";
    const std::pair<std::string, Status> kStrange[] = {
        {std::string(3, 'p'), {160, 0, 0}},
        {std::string(9, 'p'), {160, 0, 0}},
        {std::string(8, '\x70'), kEndOfWalk},
    };
    for (const auto& [bytes, due] : kStrange) {
        Buffer(kPosition) = bytes;
        EXPECT_EQ(Next(other), std::nullopt);
        EXPECT_EQ(LastStatus(), due);
        EXPECT_EQ(Position(), std::vector<uint32_t>());
        ExpectNothingHeld();
    }
    Buffer(kPosition) = std::string(8, '\x70');
    EXPECT_EQ(Previous(other), std::nullopt) << "a group beyond the file";
    EXPECT_EQ(LastStatus()[0], 107U);
}

// The callback's status is the call's; the walk is over.
TEST_F(WalkCalls, RefusedBuffers) {
    const Status kRefusal{1234, 5, 6};
    OpenOptions options{};
    options.PositionObjectInUse = 1;
    options.PositionObject = kPosition;
    Buffer(kPosition).clear();
    const uint32_t file = MakeFile({0, 2, 1}, options);
    const struct {
        uint32_t Operation;
        uint32_t Nth;
        uint32_t Counted;
        int Good;  // calls before
    } kCases[] = {
        {2, 1, 1, 0},                              // the length of an empty list
        {2, 2, 0, 0},                              // the position
        {1, 1, 1, 1}, {1, 2, 1, 1}, {0, 1, 0, 1},  // reading the position
    };
    for (const auto& [operation, nth, counted, good] : kCases) {
        SCOPED_TRACE(testing::Message() << "operation " << operation << ", " << nth);
        for (int i = 0; i < good; ++i) {
            EXPECT_TRUE(Next(file));
        }
        const uint32_t before = CountOf(qx::Counter::ReadNextAllocationErrors);
        RefuseCallback(operation, nth, {kRefusal[0], kRefusal[1], kRefusal[2]});
        EXPECT_EQ(Next(file), std::nullopt);
        AcceptCallbacks();
        EXPECT_EQ(LastStatus(), kRefusal);
        EXPECT_EQ(CountOf(qx::Counter::ReadNextAllocationErrors) - before, counted);
        EXPECT_EQ(Position(), std::vector<uint32_t>());
        ExpectNothingHeld();
    }
}

TEST_F(WalkCalls, ListsThatAreTooLong) {
    ASSERT_TRUE(Close(MakeFile({1, 2})));
    const uint32_t owner = Session;
    const auto lengthOfSecond = static_cast<uint32_t>(ListOf({1}).size());
    for (const bool fits : {true, false}) {
        OpenSession(fits ? lengthOfSecond : lengthOfSecond - 1);
        const uint32_t file = Open(kFile);
        EXPECT_EQ(Next(file), ListOf({0}));
        EXPECT_EQ(Next(file).has_value(), fits);
        if (!fits) {
            EXPECT_EQ(LastStatus(), (Status{1001, 1, 1}));
        }
        EXPECT_EQ(Record(file).SelectCount, fits ? 1U : 0U);
        EXPECT_TRUE(ClearSelect(file));
    }
    Session = owner;
}

// A walk over all groups in order counts the file anew. What it finds goes into the header at its end, if the handle
// may write; so does the end of the state in which a file may only grow.
TEST_F(WalkCalls, CountTheFileAnew) {
    std::vector<qx_check::Record> records;
    for (int i = 0; i < 60; ++i) {
        records.push_back({"key " + std::to_string(i), std::string(100, 'd')});
    }
    enum class Walk { Full, Twice, AbandonedThenFull, Backward, ReadOnly };
    const struct {
        Walk How;
        uint16_t SizeLock;
        uint16_t SizeLockAfter;
        bool Exact;
    } kCases[] = {
        {Walk::Full, 2, 2, true},      {Walk::Full, 0, 0, true},      {Walk::Full, 1, 0, true},
        {Walk::Full, 3, 2, true},      {Walk::Twice, 0, 0, true},     {Walk::AbandonedThenFull, 0, 0, true},
        {Walk::Backward, 0, 0, false}, {Walk::ReadOnly, 1, 1, false},
    };
    for (const auto& [how, sizeLock, sizeLockAfter, exact] : kCases) {
        SCOPED_TRACE(testing::Message() << "walk " << static_cast<int>(how) << ", size lock " << sizeLock);
        qx_check::FileShape shape;
        shape.modulo = 9;
        shape.sizeLock = sizeLock;
        qx_check::BuiltFile built = qx_check::BuildFile(shape, records);
        const uint32_t alpha = qx_check::Get32(built.primary.data() + 15);
        qx_check::Put32(built.primary.data() + 15, alpha - 100);
        qx_check::Put32(built.primary.data() + 22, 77);
        built.Save(Path(kFile));
        OpenOptions options{};
        options.ReadOnly = how == Walk::ReadOnly ? 1 : 0;
        const uint32_t file = OpenWith(options);
        if (how == Walk::AbandonedThenFull) {
            EXPECT_TRUE(Next(file) && Next(file));
            EXPECT_TRUE(ClearSelect(file));
        }
        for (int i = 0; i < (how == Walk::Twice ? 2 : 1); ++i) {
            while (how == Walk::Backward ? Previous(file) : Next(file)) {
            }
        }
        const qx_check::Report onDisk = qx_check::CheckFile(Path(kFile));
        EXPECT_EQ(onDisk.header.sizeLock, sizeLockAfter);
        EXPECT_EQ(onDisk.header.recordCount, exact ? records.size() : 77U);
        EXPECT_EQ(onDisk.header.alpha, exact ? alpha : alpha - 100);
        EXPECT_EQ(HeaderOf(file)->RecordCount, exact || how == Walk::ReadOnly ? records.size() : 77U);
        ASSERT_TRUE(Close(file));
    }
}

}  // namespace
}  // namespace qx_test
