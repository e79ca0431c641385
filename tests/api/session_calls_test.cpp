// Opening and closing sessions, and the handles of sessions and files.
#include <algorithm>
#include <cstring>
#include <memory>
#include <thread>

#include "runtime/library_record.h"
#include "support/file_test.h"
#include "support/standing_call.h"

namespace qx_test {
namespace {

using qx::Counter;

constexpr Status kNotOpen{1100, 0, 0};
constexpr Status kBeyondTheTable{1100, 0, 1};
constexpr Status kBusy{1102, 0, 0};
constexpr Status kTooManySessions{1022, 0, 0};

Status CloseSession(uint32_t session) {
    return Called([&](StatusRecord* status) { return QXCloseSession(session, status); });
}

Status FlushSession(uint32_t session) {
    return Called([&](StatusRecord* status) { return QXFlush(session, status); });
}

// The fixture's own session has the handle 0.
class SessionCalls : public FileTest {
  protected:
    SessionCalls() { EXPECT_EQ(Session, 0U); }

    uint32_t Opened(BufferCallback callback = TestCallback) {
        uint32_t session = kNone;
        EXPECT_TRUE(Run([&](StatusRecord* status) { return QXOpenSession(callback, nullptr, &session, status); }));
        return session;
    }

    // kNone, with the failure in LastStatus(), when it is refused.
    uint32_t OpenedAs(std::string_view identifier, uint32_t maximum) {
        SessionOptions options{};
        options.Size = sizeof options;
        options.MaximumIdentifierSessions = maximum;
        options.IdentifierLength = static_cast<uint32_t>(identifier.size());
        std::memcpy(options.Identifier, identifier.data(), identifier.size());
        uint32_t session = kNone;
        Run([&](StatusRecord* status) { return QXOpenSession(TestCallback, &options, &session, status); });
        return session;
    }

    static qx::SessionRecord& RecordOf(uint32_t session) {
        return *qx::theLibrary.Sessions.PayloadOf<qx::SessionRecord>(session);
    }
};

TEST_F(SessionCalls, HandlesClosedFirstAreReusedFirst) {
    EXPECT_EQ(Opened(), 1U);
    EXPECT_EQ(Opened(), 2U);
    EXPECT_EQ(CloseSession(0), kNothing);
    EXPECT_EQ(CloseSession(2), kNothing);
    EXPECT_EQ(FlushSession(1), kNothing);
    for (const auto& [session, expected] : {std::pair{0U, kNotOpen},
                                            {2U, kNotOpen},
                                            {3U, kBeyondTheTable},
                                            {0x80000000U, kBeyondTheTable},
                                            {kNone, kBeyondTheTable}}) {
        EXPECT_EQ(CloseSession(session), expected) << session;
        EXPECT_EQ(FlushSession(session), expected) << session;
        Session = session;
        EXPECT_FALSE(Create("F"));
        EXPECT_EQ(LastStatus(), expected) << session;
        EXPECT_EQ(Open("F"), kNone);
        EXPECT_EQ(LastStatus(), expected) << session;
        EXPECT_FALSE(Delete("F"));
        EXPECT_EQ(LastStatus(), expected) << session;
    }
    EXPECT_EQ(Opened(), 0U);
    EXPECT_EQ(Opened(), 2U);
    EXPECT_EQ(Opened(), 3U);

    Session = 3;
    EXPECT_FALSE(Close(0));
    EXPECT_EQ(LastStatus(), kBeyondTheTable) << "no file was ever open";
    ASSERT_TRUE(Create("F"));
    EXPECT_EQ(Open("F"), 0U);
    EXPECT_EQ(Open("F"), 1U);
    EXPECT_TRUE(Close(0));
    EXPECT_EQ(Get(0, "key"), std::nullopt);
    EXPECT_EQ(LastStatus(), kNotOpen);
    EXPECT_EQ(CloseSession(3), kNothing);
    EXPECT_EQ(Get(1, "key"), std::nullopt);
    EXPECT_EQ(LastStatus(), kNotOpen) << "closed with its session";
    EXPECT_EQ(Get(2, "key"), std::nullopt);
    EXPECT_EQ(LastStatus(), kBeyondTheTable);
}

TEST_F(SessionCalls, OptionsAreReadAsFarAsTheirSizeReaches) {
    SessionOptions full{};
    full.MaximumRecordSize = 1234;
    full.Reserved1 = full.Reserved2 = 0xFFFFFFFF;
    full.MaximumIdentifierSessions = 99;
    std::memcpy(full.Identifier, "ABCDEFGHIJKLMNOP", 16);
    struct Row {
        uint32_t Size;
        uint32_t IdentifierLength;
        uint32_t MaximumRecordSize;
        uint32_t MaximumIdentifierSessions;
        std::string_view Identifier;
    };
    constexpr Row kTable[] = {
        {0, 10, 0, 0, ""},
        {4, 10, 0, 0, ""},
        {7, 10, 0, 0, ""},
        {8, 10, 1234, 0, ""},
        {19, 10, 1234, 0, ""},
        {20, 10, 1234, 99, ""},
        {23, 10, 1234, 99, ""},
        {24, 10, 1234, 99, ""},
        {25, 10, 1234, 99, "A"},
        {28, 10, 1234, 99, "ABCD"},
        {34, 10, 1234, 99, "ABCDEFGHIJ"},
        {40, 10, 1234, 99, "ABCDEFGHIJ"},
        {39, 16, 1234, 99, "ABCDEFGHIJKLMNO"},
        {40, 16, 1234, 99, "ABCDEFGHIJKLMNOP"},
        {40, 17, 1234, 99, "ABCDEFGHIJKLMNOP"},
        {0xFFFFFFFF, 0xFFFFFFFF, 1234, 99, "ABCDEFGHIJKLMNOP"},
        {40, 0, 1234, 99, ""},
    };
    for (const Row& row : kTable) {
        full.Size = row.Size;
        full.IdentifierLength = row.IdentifierLength;
        // No more memory than the size says, so that a memory checker sees what is read beyond it.
        const size_t given = std::clamp<size_t>(row.Size, 4, sizeof full);
        const std::unique_ptr<char[]> options(new char[given]);
        std::memcpy(options.get(), &full, given);
        uint32_t session = kNone;
        ASSERT_EQ(
            QXOpenSession(TestCallback, reinterpret_cast<const SessionOptions*>(options.get()), &session, nullptr), 1);
        const qx::SessionRecord& record = RecordOf(session);
        EXPECT_EQ(record.MaximumRecordSize, row.MaximumRecordSize) << row.Size;
        EXPECT_EQ(record.MaximumIdentifierSessions, row.MaximumIdentifierSessions) << row.Size;
        EXPECT_EQ(record.IdentifierBytes(), row.Identifier) << row.Size;
        EXPECT_EQ(CloseSession(session), kNothing);
    }
    const qx::SessionRecord& record = RecordOf(Opened());
    EXPECT_EQ(record.MaximumRecordSize, 0U) << "nothing stays from an earlier session";
    EXPECT_EQ(record.IdentifierBytes(), "");
}

TEST_F(SessionCalls, SessionsWithOneIdentifierMayBeLimited) {
    const uint32_t first = OpenedAs("desk", 2);
    EXPECT_NE(first, kNone);
    EXPECT_NE(OpenedAs("desk", 2), kNone);
    EXPECT_EQ(OpenedAs("desk", 2), kNone);
    EXPECT_EQ(LastStatus(), kTooManySessions);
    EXPECT_NE(OpenedAs("des", 1), kNone);
    EXPECT_NE(OpenedAs("desks", 1), kNone);
    EXPECT_NE(OpenedAs(std::string_view("desk\0", 5), 1), kNone);
    EXPECT_NE(OpenedAs("Desk", 1), kNone);
    EXPECT_NE(OpenedAs("desk", 3), kNone) << "each session brings its own limit";
    EXPECT_NE(OpenedAs("desk", 0), kNone);
    EXPECT_EQ(OpenedAs("desk", 4), kNone);
    EXPECT_EQ(CloseSession(first), kNothing);
    EXPECT_EQ(OpenedAs("desk", 3), kNone);
    EXPECT_EQ(LastStatus(), kTooManySessions);
    EXPECT_EQ(OpenedAs("desk", 4), first) << "a refused session has taken no handle";
    EXPECT_EQ(OpenedAs("", 1), kNone) << "the fixture's session has no identifier either";
    EXPECT_NE(OpenedAs("", 2), kNone);
}

TEST_F(SessionCalls, AFailedOpenLeavesNoSession) {
    const uint32_t active = CountOf(Counter::ActiveSessions);
    const uint32_t added = CountOf(Counter::AddSessions);
    bool delivered = true;
    uint64_t nth = 0;
    while (delivered) {
        ASSERT_LT(nth, 100U);
        Faults.FailAny(++nth);
        uint32_t session = 77;
        const Status status =
            Called([&](StatusRecord* target) { return QXOpenSession(TestCallback, nullptr, &session, target); });
        delivered = Faults.Delivered();
        EXPECT_EQ(status, (delivered ? Status{1015, 0, 0} : kNothing)) << nth;
        EXPECT_EQ(session, delivered ? 77U : 1U);
        EXPECT_EQ(qx::theLibrary.SessionList.Head(), 0U);
        EXPECT_EQ(CountOf(Counter::ActiveSessions), active + !delivered);
        EXPECT_EQ(CountOf(Counter::AddSessions), added + !delivered);
        Faults.Clear();
    }
    EXPECT_GE(nth, 3U) << "the slot, the record, and then nothing";
}

TEST_F(SessionCalls, NamesHaveAtMost256Bytes) {
    // Steps that lead nowhere make a name long and leave its path short.
    const auto name = [&](size_t length) {
        std::string path = Directory.Path();
        path += (length - path.size()) % 2 == 0 ? "//" : "/";
        while (path.size() + 3 <= length) {
            path += "./";
        }
        return path + std::string(length - path.size(), 'x');
    };
    for (const auto& [length, code] : {std::pair{256U, 231U}, {257U, 1000U}, {5000U, 1000U}}) {
        Buffer(kName) = name(length);
        ASSERT_EQ(Buffer(kName).size(), length);
        uint32_t file = 0;
        const Status opening =
            Called([&](StatusRecord* status) { return QXOpenFile(Session, kName, nullptr, &file, status); });
        const Status deleting = Called([&](StatusRecord* status) { return QXDeleteFile(Session, kName, status); });
        EXPECT_EQ(opening, (Status{code, code == 231U, 0})) << length;
        EXPECT_EQ(deleting, opening) << length;
    }
    Buffer(kName) = name(256);
    EXPECT_TRUE(Run([&](StatusRecord* status) { return QXCreateFile(Session, kName, nullptr, status); }));
    for (const auto& [bad, code] : {std::pair{"", 1006U}, {"//server", 1005U}, {"dir/", 1006U}}) {
        Buffer(kName) = bad;
        EXPECT_FALSE(Run([&](StatusRecord* status) { return QXCreateFile(Session, kName, nullptr, status); }));
        EXPECT_EQ(LastStatus(), (Status{code, 0, 0})) << bad;
    }
}

// What the files of a session, or the sessions of the library, fail to store on closing: the first failure is told, and
// all of them are closed.
TEST_F(SessionCalls, ClosingTellsTheFirstFailureAndGoesOn) {
    for (const bool terminate : {false, true}) {
        Session = 0;
        const std::string suffix = terminate ? "t" : "c";
        for (const char* name : {"A", "B"}) {
            const uint32_t file = CreateAndOpen(name + suffix);
            ASSERT_TRUE(Put(file, "key", "data"));
            if (terminate) {
                Session = Opened();
            }
        }
        // The first file cannot write its header, the second cannot read it before.
        Faults.Fail(Call::Write, 1, qx::SystemError::VolumeFull);
        Faults.Fail(Call::Read, 2);
        if (terminate) {
            EXPECT_FALSE(Run([](StatusRecord* status) { return QXTerminate(status); }));
        } else {
            EXPECT_FALSE(Run([](StatusRecord* status) { return QXCloseSession(0, status); }));
        }
        EXPECT_EQ(LastStatus(), (Status{103, 1, 1})) << terminate;
        Faults.Clear();
        EXPECT_EQ(Faults.Held.OpenHandles, 0) << terminate;
        if (terminate) {
            EXPECT_EQ(Faults.Held.Heaps, 0);
            StartLibrary();
        } else {
            EXPECT_EQ(FlushSession(0), kNotOpen);
            EXPECT_EQ(Opened(), 0U);
        }
    }
}

TEST_F(SessionCalls, AFileIsFlushedOnClosingWhateverBecameOfTheOnesBefore) {
    for (const char* name : {"A", "B"}) {
        ASSERT_TRUE(Put(CreateAndOpen(name), "key", "data"));
    }
    const uint64_t flushes = Faults.Count(Call::Flush);
    Faults.Fail(Call::Write, 1, qx::SystemError::VolumeFull);
    EXPECT_EQ(CloseSession(0), (Status{103, 1, 1}));
    EXPECT_EQ(Faults.Count(Call::Flush) - flushes, 1U);
    Faults.Clear();
    EXPECT_EQ(Opened(), 0U);
}

class ConcurrentSessionCalls : public SessionCalls {};

TEST_F(ConcurrentSessionCalls, ASessionAndAFileStayOpenUnderACall) {
    ASSERT_TRUE(Create("F"));
    Session = Opened(StandingCallback);
    const uint32_t file = Open("F");
    ASSERT_TRUE(Put(file, "key", "data"));
    Status read{1, 1, 1};
    StandingCall call("key", [&] {
        read = Called([&](StatusRecord* status) { return QXReadRecord(file, 0, 1, status); });
        EXPECT_EQ(Buffer(1), "data");
    });
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(CloseSession(Session), kBusy);
        EXPECT_FALSE(Close(file));
        EXPECT_EQ(LastStatus(), kBusy);
    }
    EXPECT_EQ(FlushSession(Session), kNothing) << "other calls go on";
    EXPECT_EQ(Get(file, "key"), "data");
    EXPECT_EQ(CloseSession(0), kNothing);
    call.Finish();
    EXPECT_EQ(read, kNothing);
    EXPECT_TRUE(Close(file));
    EXPECT_EQ(CloseSession(Session), kNothing);
}

// Sessions come and go while others are closed by whoever guesses their handle.
TEST_F(ConcurrentSessionCalls, SessionsOfManyThreads) {
    std::atomic<int> open{0};
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (uint32_t i = 0; i < 300; ++i) {
                uint32_t session = kNone;
                EXPECT_EQ(QXOpenSession(TestCallback, nullptr, &session, nullptr), 1);
                ++open;
                const Status status = CloseSession((session + t + i) % 6);
                open -= status == kNothing;
                EXPECT_TRUE(status == kNothing || status[0] == 1100 || status == kBusy);
                FlushSession(i % 8);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(CountOf(Counter::ActiveSessions), static_cast<uint32_t>(open + 1));
}

}  // namespace
}  // namespace qx_test
