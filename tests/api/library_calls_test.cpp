// Starting and stopping the library.
#include <thread>
#include <vector>

#include "runtime/library_record.h"
#include "runtime/wait_event_pool.h"
#include "support/faulty_platform.h"
#include "support/raised.h"
#include "support/standing_call.h"
#include "support/test_library.h"

namespace qx_test {
namespace {

constexpr Status kNotStarted{1100, 0, 0};
constexpr Status kBusy{1102, 0, 0};
constexpr Status kNoMemory{1015, 0, 0};

Status Initialize() {
    ApiVersionRecord version{sizeof version, 1, 1, 1};
    return Called([&](StatusRecord* status) { return QXInitialize(&version, status); });
}

Status Terminate() {
    return Called([](StatusRecord* status) { return QXTerminate(status); });
}

Status OpenSession(uint32_t* session, BufferCallback callback = TestCallback) {
    return Called([&](StatusRecord* status) { return QXOpenSession(callback, nullptr, session, status); });
}

class LibraryCalls : public testing::Test {
  protected:
    ~LibraryCalls() override {
        Platform.Clear();
        while (Terminate() == kNothing) {
        }
        ExpectNothingLeft();
    }

    void ExpectNothingLeft() {
        EXPECT_EQ(Platform.Held.Heaps, 0);
        EXPECT_EQ(Platform.Held.HeapBlocks, 0);
        EXPECT_EQ(Platform.Held.Events, 0);
        EXPECT_EQ(Platform.Held.OpenHandles, 0);
    }

    // The worker takes its event some time after it was started.
    static void WaitForWorker() {
        while (qx::theWaitEvents.TakenCount() == 0) {
            std::this_thread::yield();
        }
    }

    FaultyPlatform Platform;
};

TEST_F(LibraryCalls, VersionsAccepted) {
    constexpr uint32_t kUnset = 0xFFFFFFFF;
    struct Row {
        ApiVersionRecord Asked;
        bool Accepted;
    };
    constexpr Row kTable[] = {
        {{16, 1, 1, 1}, true},       {{16, 1, 1, 0}, true},           {{100, 1, 1, 0}, true},
        {{16, 1, 1, 7}, true},       {{16, 1, 2, 0}, true},           {{16, 1, 2, kUnset}, true},
        {{16, 2, 0, 0}, true},       {{16, 2, kUnset, kUnset}, true}, {{16, kUnset - 1, 0, 0}, true},
        {{16, 1, 0, 0}, false},      {{16, 1, 0, 9}, false},          {{16, 1, kUnset, 0}, false},
        {{16, 1, 1, kUnset}, false}, {{16, 0, 1, 1}, false},          {{16, kUnset, 1, 1}, false},
        {{15, 1, 1, 1}, false},      {{0, 1, 1, 1}, false},           {{12, 2, 0, 0}, false},
    };
    for (const bool started : {false, true}) {
        for (const Row& row : kTable) {
            const ApiVersionRecord& asked = row.Asked;
            const uint32_t initializes = qx::theProcessCounters.Value(qx::Counter::Initializes);
            ApiVersionRecord version = asked;
            const Status status = Called([&](StatusRecord* target) { return QXInitialize(&version, target); });
            EXPECT_EQ(qx::theProcessCounters.Value(qx::Counter::Initializes), initializes + 1);
            EXPECT_EQ(status, (row.Accepted ? kNothing : Status{1018, 0, 0}))
                << asked.Size << ' ' << asked.Major << '.' << asked.Minor << '.' << asked.Revision;
            EXPECT_EQ(version.Size, asked.Size);
            EXPECT_EQ(version.Major, row.Accepted ? 1 : asked.Major);
            EXPECT_EQ(version.Minor, row.Accepted ? 1 : asked.Minor);
            EXPECT_EQ(version.Revision, row.Accepted ? 1 : asked.Revision);
            if (row.Accepted) {
                EXPECT_EQ(Terminate(), kNothing);
            }
        }
        if (!started) {
            EXPECT_EQ(Terminate(), kNotStarted);
            EXPECT_EQ(Initialize(), kNothing);
        }
    }
    EXPECT_EQ(Terminate(), kNothing) << "refused calls are not counted";
}

TEST_F(LibraryCalls, TheLastTerminateStopsAndTheNextInitializeStartsAnew) {
    uint32_t session = 77;
    EXPECT_EQ(Terminate(), kNotStarted);
    EXPECT_EQ(OpenSession(&session), kNotStarted);
    EXPECT_EQ(session, 77U);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(Initialize(), kNothing);
        EXPECT_EQ(Initialize(), kNothing);
        EXPECT_EQ(Terminate(), kNothing);
        EXPECT_EQ(Called([](StatusRecord* status) { return QXFlush(0, status); }), (Status{1100, 0, 1}));
        for (uint32_t expected = 0; expected < 3; ++expected) {
            EXPECT_EQ(OpenSession(&session), kNothing);
            EXPECT_EQ(session, expected);
        }
        EXPECT_EQ(Terminate(), kNothing) << "open sessions are closed";
        EXPECT_EQ(Terminate(), kNotStarted);
        EXPECT_EQ(Called([](StatusRecord* status) { return QXFlush(0, status); }), kNotStarted);
        EXPECT_EQ(qx::theProcessCounters.Value(qx::Counter::ActiveSessions), 0U);
        ExpectNothingLeft();
    }
}

TEST_F(LibraryCalls, AFailedStartTellsTheStepAndLeavesNothing) {
    struct Row {
        Call Failing;
        uint64_t Nth;
        Status Expected;
    };
    constexpr Row kTable[] = {
        {Call::IsSupported, 1, {1007, 0, 2}},  {Call::HeapCreate, 1, {1007, 0, 3}},
        {Call::HeapAllocate, 1, {1007, 0, 4}}, {Call::HeapCreate, 2, {1007, 0, 5}},
        {Call::PinModule, 1, kNoMemory},       {Call::ThreadStart, 1, kNoMemory},
    };
    for (const Row& row : kTable) {
        Platform.Fail(row.Failing, row.Nth);
        EXPECT_EQ(Initialize(), row.Expected) << NameOf(row.Failing);
        ExpectNothingLeft();
        EXPECT_EQ(Terminate(), kNotStarted);
    }
    // Whatever fails first, and if it is in the worker, which the library can do without.
    uint64_t nth = 0;
    for (bool delivered = true; delivered; ++nth) {
        ASSERT_LT(nth, 100U);
        Platform.Clear();
        Platform.FailAny(nth + 1);
        const Status status = Initialize();
        if (status != kNothing) {
            EXPECT_TRUE(Platform.Delivered());
            EXPECT_TRUE(status[0] == 1007 || status == kNoMemory) << status[0];
            ExpectNothingLeft();
            EXPECT_EQ(Initialize(), kNothing) << "the next attempt";
        }
        delivered = Platform.Delivered();
        Platform.Clear();
        uint32_t session = 0;
        EXPECT_EQ(OpenSession(&session), kNothing);
        EXPECT_EQ(Terminate(), kNothing);
        ExpectNothingLeft();
    }
    EXPECT_GT(nth, std::size(kTable));
}

TEST_F(LibraryCalls, AStopWithoutAnEventCanBeTriedAgain) {
    EXPECT_EQ(Initialize(), kNothing);
    WaitForWorker();
    uint32_t session = 0;
    EXPECT_EQ(OpenSession(&session), kNothing);
    for (int i = 0; i < 2; ++i) {
        Platform.Fail(Call::EventCreate, 1);
        EXPECT_EQ(Terminate(), kNoMemory);
    }
    EXPECT_EQ(Called([&](StatusRecord* status) { return QXFlush(session, status); }), kNothing) << "it is still open";
    EXPECT_EQ(Initialize(), kNothing);
    EXPECT_EQ(Terminate(), kNothing);
    EXPECT_EQ(Terminate(), kNothing);
    EXPECT_EQ(Terminate(), kNotStarted);
}

TEST_F(LibraryCalls, TheLibraryNeedsNoStatusRecord) {
    ApiVersionRecord version{15, 1, 1, 1};
    uint32_t session = 0;
    EXPECT_EQ(QXInitialize(&version, nullptr), 0);
    EXPECT_EQ(QXTerminate(nullptr), 0);
    EXPECT_EQ(QXOpenSession(TestCallback, nullptr, &session, nullptr), 0);
    EXPECT_EQ(QXCloseSession(0, nullptr), 0);
    version.Size = 16;
    EXPECT_EQ(QXInitialize(&version, nullptr), 1);
    EXPECT_EQ(QXCloseFile(0, nullptr), 0);
    EXPECT_EQ(QXTerminate(nullptr), 1);
}

class ConcurrentLibraryCalls : public LibraryCalls {};

TEST_F(ConcurrentLibraryCalls, NothingIsStoppedUnderACall) {
    const TestDirectory directory;
    EXPECT_EQ(Initialize(), kNothing);
    uint32_t session = 0;
    EXPECT_EQ(OpenSession(&session, StandingCallback), kNothing);
    Status created{};
    StandingCall call(directory.File("F"), [&] {
        created = Called([&](StatusRecord* status) { return QXCreateFile(session, 0, nullptr, status); });
    });
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Terminate(), kBusy);
    }
    EXPECT_EQ(Initialize(), kNothing);
    EXPECT_EQ(Terminate(), kNothing) << "this one is not the last";
    EXPECT_EQ(Terminate(), kBusy);
    call.Finish();
    EXPECT_EQ(created, kNothing);
    EXPECT_EQ(ReadHashedFile(directory.File("F")).Primary.size(), 1024U);
    EXPECT_EQ(Terminate(), kNothing);
    EXPECT_EQ(Terminate(), kNotStarted);
}

TEST_F(ConcurrentLibraryCalls, ManyThreadsStartAndStop) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 50; ++i) {
                EXPECT_EQ(Initialize(), kNothing);
                uint32_t session = 0;
                EXPECT_EQ(OpenSession(&session), kNothing);
                EXPECT_EQ(Called([&](StatusRecord* status) { return QXCloseSession(session, status); }), kNothing);
                EXPECT_EQ(Terminate(), kNothing);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(Terminate(), kNotStarted);
}

}  // namespace
}  // namespace qx_test
