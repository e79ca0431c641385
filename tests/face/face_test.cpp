// The C++ face against the library itself.

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <gmock/gmock.h>
#include <map>
#include <optional>
#include <qx.hpp>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "face/allocation_watch.h"
#include "support/test_library.h"

namespace {

using qx_test::TestDirectory;

static_assert(std::movable<qx::Library> && !std::copyable<qx::Library>);
static_assert(std::movable<qx::Session> && !std::copyable<qx::Session>);
static_assert(std::movable<qx::File> && !std::copyable<qx::File>);

// The code that `call` fails with; 0 if it succeeds.
template <typename Call>
std::uint32_t CodeOf(const Call& call) {
    try {
        call();
        return 0;
    } catch (const qx::Error& error) {
        return error.Code();
    }
}

class Face : public testing::Test {
  protected:
    std::string Name(std::string_view name) const { return directory_.File(name); }

    qx::File Make(std::string_view name, const qx::CreateSettings& settings = {}) {
        session_.CreateFile(Name(name), settings);
        return session_.OpenFile(Name(name));
    }

    TestDirectory directory_;
    qx::Library library_;
    qx::Session session_{library_};
};

TEST_F(Face, AMissingRecordIsNoError) {
    qx::File file = Make("A");
    file.Write("there", "x");
    EXPECT_EQ(file.Read("not there"), std::nullopt);
    std::string into = "as it was";
    EXPECT_FALSE(file.Read("not there", into));
    EXPECT_EQ(into, "as it was");
    EXPECT_TRUE(file.Delete("there"));
    EXPECT_FALSE(file.Delete("there"));
    EXPECT_EQ(file.Read("there"), std::nullopt);
    session_.Flush();
}

TEST_F(Face, AReadIntoAStringThatHasRoomAllocatesNothing) {
    qx::File file = Make("A");
    const std::string longRecord(900, 'x');
    file.Write("long", longRecord);
    file.Write("short", "y");
    std::string into;
    ASSERT_TRUE(file.Read("long", into));
    const char* const place = into.data();
    // A call that meets the worker at the file waits with an event, which is an allocation: the least of some turns.
    std::uint64_t least = UINT64_MAX;
    for (int i = 0; i < 10; ++i) {
        const std::uint64_t before = qx_test::Allocations();
        ASSERT_TRUE(file.Read("short", into));
        ASSERT_EQ(into, "y");
        ASSERT_FALSE(file.Read("none", into));
        ASSERT_TRUE(file.Read("long", into));
        least = std::min(least, qx_test::Allocations() - before);
    }
    EXPECT_EQ(least, 0U);
    EXPECT_EQ(into.data(), place);
    EXPECT_EQ(into, longRecord);
}

TEST_F(Face, AShortageOfMemoryInTheCallbackIsAFailedCall) {
    qx::File file = Make("A");
    file.Write("key", std::string(50'000, 'x'));
    std::string into;
    {
        const qx_test::MemoryShortage shortage(50'000);
        EXPECT_EQ(CodeOf([&] { file.Read("key", into); }), 160u);
    }
    EXPECT_TRUE(file.Read("key", into));
    EXPECT_EQ(into.size(), 50'000u);
}

TEST_F(Face, WhatIsTooLongFor32BitsIsRefused) {
    qx::File file = Make("A");
    const std::string_view endless("", std::size_t{1} << 32);  // never looked into
    EXPECT_EQ(CodeOf([&] { file.Read(endless); }), 1002u);
    EXPECT_EQ(CodeOf([&] { file.Write("key", endless); }), 1002u);
    EXPECT_EQ(CodeOf([&] { session_.OpenFile(endless); }), 1002u);
    EXPECT_EQ(file.Header().RecordCount, 0u);
}

// Keys that look like several keys or like none, one that ends where a list does, and a record each over several
// frames.
std::map<std::string, std::string> HostileRecords() {
    std::map<std::string, std::string> records;
    for (int byte = 0; byte < 256; ++byte) {
        const std::string one(1, static_cast<char>(byte));
        for (const std::string& key : {one, one + one, "a" + one, one + "b\xFE", "\xFE" + one}) {
            records[key] = std::string(static_cast<std::size_t>(byte) * 20, static_cast<char>(byte));
        }
    }
    records[""] = "of the empty key";
    records[std::string(5000, '\xFE')] = "";
    return records;
}

std::vector<std::string> KeysOf(qx::KeyWalk walk) {
    std::vector<std::string> keys;
    for (const std::string_view key : walk) {
        keys.emplace_back(key);
    }
    return keys;
}

TEST_F(Face, AWalkYieldsEveryKeyOnceWhateverItsBytes) {
    const std::map<std::string, std::string> records = HostileRecords();
    std::vector<std::string> expected;
    for (const auto& [key, record] : records) {
        expected.push_back(key);
    }
    for (const qx::CreateSettings settings : {qx::CreateSettings{}, {.Modulo = 1, .SizeLock = 2}, {.Modulo = 5000}}) {
        qx::File file = Make("modulo" + std::to_string(settings.Modulo) + std::to_string(settings.SizeLock), settings);
        EXPECT_THAT(KeysOf(file.Keys()), testing::IsEmpty());
        EXPECT_THAT(KeysOf(file.ReverseKeys()), testing::IsEmpty());
        for (const auto& [key, record] : records) {
            file.Write(key, record);
        }
        EXPECT_THAT(KeysOf(file.Keys()), testing::UnorderedElementsAreArray(expected));
        EXPECT_THAT(KeysOf(file.ReverseKeys()), testing::UnorderedElementsAreArray(expected));
        EXPECT_TRUE(file.Header().RecordCount == records.size());
    }
}

TEST_F(Face, AWalkCanBeBrokenOffStartedAgainAndTakeItsRecordsAway) {
    qx::File file = Make("A", {.Modulo = 20, .SizeLock = 2});
    for (int i = 0; i < 200; ++i) {
        file.Write(std::to_string(i), "x");
    }
    qx::KeyWalk walk = file.Keys();
    const std::string first(*walk.begin());
    EXPECT_EQ(*walk.begin(), first);
    std::uint32_t last = 0;
    for (const std::string_view key : file.Keys()) {
        const std::uint32_t group = file.GroupNumber(key);
        EXPECT_GE(group, last);
        last = group;
        EXPECT_TRUE(file.Delete(key));
        if (group == 10) {
            break;
        }
    }
    std::uint32_t left = 0;
    for (const std::string_view key : file.ReverseKeys()) {
        EXPECT_GE(file.GroupNumber(key), 10u);
        left += file.Delete(key) ? 1 : 0;
    }
    EXPECT_GT(left, 0u);
    EXPECT_EQ(file.Header().RecordCount, 0u);
}

TEST_F(Face, AFailedWalkIsTold) {
    qx::File file = Make("A");
    file.Write(std::string(50'000, 'k'), "x");
    file.Write("key", "x");
    {
        const qx_test::MemoryShortage shortage(50'000);
        EXPECT_EQ(CodeOf([&] { KeysOf(file.Keys()); }), 160u);
    }
    EXPECT_THAT(KeysOf(file.Keys()), testing::SizeIs(2));
    qx::Session small(library_, {.MaximumRecordSize = 1000});
    qx::File limited = small.OpenFile(Name("A"));
    EXPECT_EQ(CodeOf([&] { KeysOf(limited.Keys()); }), 1001u);
    file.Close();
    EXPECT_EQ(CodeOf([&] { KeysOf(file.Keys()); }), 1100u);
}

TEST_F(Face, AnErrorCarriesTheStatusAndItsMessage) {
    try {
        session_.OpenFile(Name("NONE"));
        FAIL() << "opened a file that does not exist";
    } catch (const qx::Error& error) {
        EXPECT_EQ(error.Code(), 231u);
        EXPECT_EQ(error.Detail1(), 1u);
        EXPECT_EQ(error.Detail2(), 0u);
        char message[512];
        const StatusRecord status{231, 1, 0};
        ASSERT_GT(QXFormatError(&status, 0, sizeof message, message), 0u);
        EXPECT_STREQ(error.what(), message);
    }
    EXPECT_THAT(qx::Error({4711, 8, 15}).what(), testing::AllOf(testing::HasSubstr("4711"), testing::HasSubstr("15")));
}

TEST_F(Face, SettingsReachTheLibrary) {
    const qx::CreateSettings settings{.Modulo = 11, .FrameSize = 512, .Threshold = 100, .SizeLock = 2, .Version = 110};
    const qx::HeaderValues header = Make("A", settings).Header();
    EXPECT_EQ(header.Modulo, 11u);
    EXPECT_EQ(header.FrameSize, 512u);
    EXPECT_EQ(header.Threshold, 100u);
    EXPECT_EQ(header.SizeLock, 2u);
    EXPECT_EQ(header.Version, 110u);
    EXPECT_EQ(header.Alpha, 33u + 10 * 14);  // the least that a header is taken to say
    EXPECT_EQ(Make("B").Header().Version, 120u);

    qx::File reader = session_.OpenFile(Name("A"), {.ReadOnly = true});
    EXPECT_EQ(CodeOf([&] { reader.Write("key", "x"); }), 102u);
    EXPECT_EQ(CodeOf([&] { reader.Delete("key"); }), 102u);
    EXPECT_EQ(CodeOf([&] { reader.Clear(); }), 102u);

    qx::Session small(library_, {.MaximumRecordSize = 10});
    qx::File file = small.OpenFile(Name("B"));
    file.Write("key", "0123456789");
    EXPECT_EQ(CodeOf([&] { file.Write("key", "0123456789A"); }), 1002u);
    EXPECT_EQ(file.Read("key"), "0123456789");

    const qx::SessionSettings two{.MaximumIdentifierSessions = 2, .Identifier = "counted"};
    qx::Session first(library_, two);
    qx::Session second(library_, two);
    EXPECT_EQ(CodeOf([&] { qx::Session third(library_, two); }), 1022u);
    EXPECT_NO_THROW(qx::Session(library_, {.MaximumIdentifierSessions = 2, .Identifier = "another"}));
}

TEST_F(Face, AMovedFileBelongsToItsNewOwnerAlone) {
    qx::File first = Make("A");
    first.Write("key", "x");
    qx::File second = std::move(first);
    EXPECT_EQ(second.Read("key"), "x");
    EXPECT_EQ(CodeOf([&] { first.Read("key"); }), 1100u);  // NOLINT(bugprone-use-after-move)
    first.Close();                                         // which is nothing to it
    EXPECT_EQ(second.Read("key"), "x");

    second = Make("B");
    second.Write("key", "of B");
    session_.DeleteFile(Name("A"));  // closed by the assignment, or this would fail
    qx::File& same = second;
    second = std::move(same);
    EXPECT_EQ(second.Read("key"), "of B");
}

TEST_F(Face, ClosingTwiceIsNothingAndUsingWhatIsClosedFails) {
    qx::File file = Make("A");
    file.Write("key", "x");
    file.Close();
    file.Close();
    EXPECT_EQ(CodeOf([&] { file.Read("key"); }), 1100u);
    {
        qx::Session other(library_);
        qx::File orphan = other.OpenFile(Name("A"));
        other.Close();
        other.Close();
        EXPECT_EQ(CodeOf([&] { orphan.Read("key"); }), 1100u);
        EXPECT_EQ(CodeOf([&] { other.Flush(); }), 1100u);
        EXPECT_EQ(CodeOf([&] { orphan.Close(); }), 1100u);
    }
    EXPECT_EQ(session_.OpenFile(Name("A")).Read("key"), "x");
}

TEST_F(Face, TheLibraryStopsWithItsLastUser) {
    EXPECT_EQ(library_.Version().Major, 1u);
    EXPECT_EQ(library_.Version().Minor, 1u);
    qx::Library second;
    qx::Library third = std::move(second);
    second.Close();  // NOLINT(bugprone-use-after-move): nothing to it
    third.Close();
    EXPECT_NO_THROW(session_.Flush());
    library_.Close();
    EXPECT_EQ(CodeOf([&] { session_.Flush(); }), 1100u);
    EXPECT_EQ(CodeOf([&] { qx::Session none(library_); }), 1100u);
    library_ = qx::Library();
    qx::Session again(library_);
    EXPECT_NO_THROW(again.Flush());
}

TEST_F(Face, AVerificationTellsDamageAndKeepsTheNumberOfGroups) {
    qx::File file = Make("A", {.Modulo = 2, .FrameSize = 256, .Threshold = 25});
    for (int i = 0; i < 3; ++i) {
        file.Write(std::to_string(i), std::string(600, 'd'));
    }
    {
        const qx::FileVerification verification = file.Verify();
        EXPECT_EQ(verification.Damage(), std::nullopt);
        const qx::FileMeasures& measures = verification.Measures();
        std::uint64_t records = 0;
        std::uint64_t overflowFrames = 0;
        for (std::uint32_t group = 0; group < measures.Modulo; ++group) {
            const qx::GroupVerification result = verification.Group(group);
            EXPECT_EQ(result.Damage, std::nullopt);
            records += result.Measures.Records;
            overflowFrames += result.Measures.OverflowFrames;
            EXPECT_GE(result.Measures.FrameVisits, 1 + result.Measures.Records);
            EXPECT_GE(result.Measures.DepthSquares, result.Measures.Records);
        }
        EXPECT_EQ(records, 3U);
        EXPECT_EQ(measures.RecordCount, 3U);
        EXPECT_EQ(measures.FrameSize, 256U);
        EXPECT_EQ(measures.PrimaryBytes, measures.Modulo * 256U);
        EXPECT_EQ(measures.HighWater, 1 + overflowFrames + measures.FreeFrames);
        EXPECT_EQ(verification.Group(1000).Damage->Number, 1U);
        EXPECT_TRUE(verification.Group(1000).Damage->Fields.at(0).ends_with("A.LK"));
        file.Write("more", std::string(600, 'd'));
        EXPECT_EQ(file.Header().Modulo, measures.Modulo) << "held";
    }
    while (file.Header().Modulo < 8) {  // it grows as soon as the verification has ended
        std::this_thread::yield();
    }
}

}  // namespace
