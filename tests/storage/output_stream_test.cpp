// What becomes of a record and of the file's counts when its group has been written and something fails after that, or
// when the list of free frames cannot be had.
#include <gmock/gmock.h>

#include "support/file_test.h"

namespace qx_test {
namespace {

constexpr uint32_t kFrameSize = 256;
constexpr uint32_t kOverflowAllocation = 0xFFFFFFFF;

// The record, of several frames, has records before and behind it or is the last one.
struct Change {
    const char* Name;
    bool IsLast;
    std::optional<size_t> Before;
    std::optional<size_t> After;
};

constexpr Change kChanges[] = {
    {"a new record", true, std::nullopt, 900},
    {"a longer record", true, 600, 1500},
    {"a longer record in between", false, 600, 1500},
    {"a shorter record", true, 900, 50},
    {"a shorter record in between", false, 900, 100},
    {"a deleted record", true, 900, std::nullopt},
    {"a deleted record in between", false, 900, std::nullopt},
};

class OutputStreamTest : public FileTest {
  protected:
    OutputStreamTest() { WriteWholeFile(Path("MOXPARAM"), "FLUSHFILESIZEUPDATES = YES"); }

    static std::optional<std::string> Data(std::optional<size_t> length) {
        return length ? std::optional(std::string(*length, 'd')) : std::nullopt;
    }

    uint32_t Make(const Change& change) {
        const uint32_t file = CreateAndOpen("F", FixedFile(2, kFrameSize));
        EXPECT_TRUE(Put(file, keys_[0], std::string(150, 'a')));
        if (change.Before) {
            EXPECT_TRUE(Put(file, keys_[1], *Data(change.Before)));
        }
        if (!change.IsLast) {
            EXPECT_TRUE(Put(file, keys_[2], std::string(700, 'b')));
        }
        EXPECT_TRUE(Close(file));
        return Open("F");
    }

    bool Do(const Change& change, uint32_t file) {
        return change.After ? Put(file, keys_[1], *Data(change.After)) : Erase(file, keys_[1]);
    }

    bool OthersAreThere(const Change& change, uint32_t file) {
        return Get(file, keys_[0]) == std::string(150, 'a') &&
               (change.IsLast || Get(file, keys_[2]) == std::string(700, 'b'));
    }

    const std::vector<std::string> keys_ = KeysOf(1, 2, 3);
};

// A record of which the list on disk knows is not taken back, and where a change stays the header counts it.
TEST_F(OutputStreamTest, WhatStaysIsCounted) {
    for (const Change& change : kChanges) {
        for (const Call call : {Call::Read, Call::Write, Call::GetSize, Call::SetSize, Call::Flush}) {
            bool failed = true;
            for (uint64_t nth = 1; failed; ++nth) {
                SCOPED_TRACE(testing::Message() << change.Name << ", " << NameOf(call) << ' ' << nth);
                const uint32_t file = Make(change);
                Faults.Fail(call, nth);
                const bool good = Do(change, file);
                failed = Faults.Delivered();
                Faults.Clear();
                EXPECT_EQ(good, !failed);
                const std::optional<std::string> left = Get(file, keys_[1]);
                const bool stays = left == Data(change.After);
                EXPECT_TRUE(stays || (call != Call::SetSize && call != Call::Flush));
                const bool isCounted = OthersAreThere(change, file) && (stays || left == Data(change.Before));
                EXPECT_TRUE(Close(file));
                const auto isOfCount = testing::AnyOf(testing::HasSubstr("Alpha"), testing::HasSubstr("RecordCount"));
                if (isCounted) {
                    EXPECT_THAT(Problems("F", {.allowLeakedFrames = true}), testing::Not(isOfCount));
                }
                EXPECT_TRUE(Delete("F"));
            }
        }
    }
}

TEST_F(OutputStreamTest, ABusyListCostsNoRecord) {
    for (const Change& change : kChanges) {
        SCOPED_TRACE(change.Name);
        const uint32_t file = Make(change);
        const FileBytes bytes = ReadHashedFile(Path("F"));
        qx::GroupLockRequest theirs;
        ASSERT_TRUE(Record(file).GroupLocks.Lock(theirs, kOverflowAllocation, true, {}));
        Faults.Fail(Call::EventCreate, 1);
        Faults.Fail(Call::EventReset, 1);
        EXPECT_FALSE(Do(change, file));
        EXPECT_EQ(LastStatus(), (Status{1015, 0, 0}));
        Faults.Clear();
        Record(file).GroupLocks.Unlock(theirs, {});
        ExpectNothingHeld();
        // Frames are given back when the group has been written; what is written first can no longer be left as it was.
        if (change.IsLast || change.After > change.Before) {
            EXPECT_TRUE(ReadHashedFile(Path("F")) == bytes);
        } else {
            EXPECT_EQ(Get(file, keys_[1]), Data(change.After));
        }
        EXPECT_TRUE(OthersAreThere(change, file));
        EXPECT_TRUE(Close(file));
        EXPECT_EQ(Problems("F", {.allowLeakedFrames = true}), "");
        EXPECT_TRUE(Delete("F"));
    }
}

}  // namespace
}  // namespace qx_test
