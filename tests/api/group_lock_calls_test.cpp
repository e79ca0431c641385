// QXLockGroup and QXUnlockGroup.
#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <thread>

#include "runtime/library_record.h"
#include "storage/attachment.h"
#include "storage/layout/file_header.h"
#include "support/fake_time.h"
#include "support/file_test.h"

namespace qx_test {
namespace {

using qx::Counter;

constexpr uint32_t kSelectHold = 0xFFFFFFFE;

class GroupLockCalls : public FileTest {
  protected:
    static bool IsClosed(uint32_t file) {
        return !Record(file).PrimaryPart.Cached.IsOpen() && !Record(file).OverflowPart.Cached.IsOpen();
    }

    uint32_t StoredRecordCount(std::string_view name) const {
        const std::string primary = ReadHashedFile(Path(name)).Primary;
        return qx::DecodeFileHeader(reinterpret_cast<const uint8_t*>(primary.data())).RecordCount;
    }

    FakeTime Time;
};

TEST_F(GroupLockCalls, ALockLeavesTheFileClosedAndItsCountsStored) {
    const uint32_t file = CreateAndOpen("F", FixedFile(10, 256));
    const std::string key = KeysOf(7, 10, 1)[0];
    ASSERT_TRUE(Put(file, key, std::string(500, 'd')));
    EXPECT_EQ(StoredRecordCount("F"), 0U);
    ASSERT_TRUE(LockGroup(file, 7));
    EXPECT_TRUE(IsClosed(file));
    EXPECT_FALSE(Record(file).PrimaryPart.Written);
    EXPECT_EQ(StoredRecordCount("F"), 1U);
    EXPECT_EQ(Problems("F"), "");
    const uint32_t unlocks = CountOf(Counter::GroupUnlocks);
    ASSERT_TRUE(LockGroup(file, 9, false));
    EXPECT_EQ(CountOf(Counter::GroupUnlocks), unlocks + 1) << "group 7 was released";
    // Any number releases it, through any handle of the session.
    const uint32_t other = CreateAndOpen("G");
    ASSERT_TRUE(UnlockGroup(other, 1234));
    EXPECT_FALSE(Record(file).HeaderIsLoaded()) << "the next call reads it again";
    ExpectNothingHeld();
    EXPECT_TRUE(UnlockGroup(file, 9)) << "with none held, too";
    EXPECT_EQ(Get(file, key), std::string(500, 'd'));
    EXPECT_EQ(Handle(file).Counters.Value(Counter::LockGroups), 2U);
    EXPECT_EQ(Handle(file).Counters.Value(Counter::UnlockGroups), 1U);
    EXPECT_EQ(Handle(other).Counters.Value(Counter::UnlockGroups), 1U);
}

TEST_F(GroupLockCalls, ALockEndsWithItsHandleSessionOrLibrary) {
    const uint32_t kept = CreateAndOpen("F");
    ASSERT_TRUE(LockGroup(kept, 0));
    const uint32_t other = CreateAndOpen("G");
    EXPECT_TRUE(Close(other)) << "another handle's end does not concern it";
    EXPECT_FALSE(Record(kept).GroupLocks.IsEmpty());
    EXPECT_TRUE(UnlockGroup(kept, 0));

    const uint32_t file = Open("F");
    ASSERT_TRUE(LockGroup(file, 0));
    EXPECT_TRUE(Close(file));
    ExpectNothingHeld();
    EXPECT_TRUE(Put(kept, "k", "d"));

    const uint32_t session = Session;
    OpenSession();
    ASSERT_TRUE(LockGroup(Open("F"), 0));
    EXPECT_TRUE(Run([&](StatusRecord* status) { return QXCloseSession(Session, status); }));
    Session = session;
    ExpectNothingHeld();
    EXPECT_EQ(Get(kept, "k"), "d");
    ASSERT_TRUE(LockGroup(kept, 0));  // which the end of the library finds held
}

TEST_F(GroupLockCalls, SelectHoldsAreCountedPerHandle) {
    const uint32_t file = CreateAndOpen("F", FixedFile(3, 256));
    const uint32_t other = Open("F");
    ASSERT_TRUE(Put(file, "k", "d"));
    ASSERT_TRUE(LockGroup(file, kSelectHold));
    EXPECT_TRUE(IsClosed(file));
    ASSERT_TRUE(LockGroup(file, kSelectHold, false));
    ExpectNothingHeld(1);
    EXPECT_TRUE(UnlockGroup(other, kSelectHold)) << "by a handle that has none";
    ExpectNothingHeld(1);
    ASSERT_TRUE(LockGroup(other, kSelectHold));
    ExpectNothingHeld(2);
    EXPECT_EQ(Get(file, "k"), "d") << "a hold keeps nobody out";
    EXPECT_TRUE(UnlockGroup(file, 7)) << "the session's group lock, of which there is none";
    ExpectNothingHeld(2);
    EXPECT_TRUE(UnlockGroup(file, kSelectHold));
    ExpectNothingHeld(2);
    EXPECT_TRUE(UnlockGroup(file, kSelectHold));
    ExpectNothingHeld(1);
    EXPECT_TRUE(UnlockGroup(file, kSelectHold));
    ExpectNothingHeld(1);
    ASSERT_TRUE(LockGroup(other, kSelectHold));
    EXPECT_TRUE(Close(other)) << "gives up all of its holds";
    ExpectNothingHeld(0);
    EXPECT_TRUE(UnlockGroup(file, kSelectHold));
    EXPECT_EQ(Handle(file).SelectCount, 0U);
}

TEST_F(GroupLockCalls, ALockWaitsUntilNoCallUsesTheFile) {
    const uint32_t file = CreateAndOpen("F");
    std::optional<qx::PrimaryAttachment> use(Record(file));
    Time.DuringSleep = [&] {
        if (Time.Sleeps() == 3) {
            use.reset();
        }
    };
    for (const uint32_t group : {5U, kSelectHold}) {
        EXPECT_TRUE(LockGroup(file, group));
        EXPECT_TRUE(UnlockGroup(file, group));
    }
    EXPECT_GE(Time.Sleeps(), 3U);
    ExpectNothingHeld();
}

// Counts that cannot be stored are tried again, but not without end.
TEST_F(GroupLockCalls, CountsThatCannotBeStoredAreAFailureInTheEnd) {
    const uint32_t file = CreateAndOpen("F", FixedFile(2, 256));
    const std::string key = KeysOf(1, 2, 1)[0];
    for (const uint32_t group : {1U, kSelectHold}) {
        ASSERT_TRUE(Put(file, key, "data"));
        Faults.Fail(Call::Write, 1);
        EXPECT_TRUE(LockGroup(file, group)) << "one failure is got over";
        EXPECT_TRUE(Faults.Delivered());
        EXPECT_EQ(StoredRecordCount("F"), 1U);
        EXPECT_TRUE(UnlockGroup(file, group));
        ASSERT_TRUE(Erase(file, key));
        Faults.Fail(Call::Write, 1, qx::SystemError::Other, true);
        const uint64_t start = Time.Elapsed();
        EXPECT_FALSE(LockGroup(file, group));
        EXPECT_EQ(LastStatus(), (Status{104, 1, 1}));
        EXPECT_GT(Time.Elapsed() - start, 60000U);
        Faults.Clear();
        ExpectNothingHeld();
        EXPECT_TRUE(LockGroup(file, group));
        EXPECT_TRUE(UnlockGroup(file, group));
        EXPECT_EQ(StoredRecordCount("F"), 0U);
    }
    EXPECT_TRUE(Close(file));
    EXPECT_EQ(Problems("F"), "");

    // The file that cannot be attached at all is a failure at once.
    const uint32_t again = Open("F");
    ASSERT_TRUE(LockGroup(again, 1));
    ASSERT_TRUE(UnlockGroup(again, 1));
    Faults.Fail(Call::Open, 1, qx::SystemError::Other, true);
    EXPECT_FALSE(LockGroup(again, 1));
    EXPECT_EQ(LastStatus(), (Status{1009, 1, 0}));
    ExpectNothingHeld();
}

class ConcurrentGroupLockCalls : public GroupLockCalls {};

// A select hold gives the primary file up before it looks at the overflow file, so a call may have come in between.
TEST_F(ConcurrentGroupLockCalls, AnOverflowFileInUseIsNotClosed) {
    const uint32_t file = CreateAndOpen("F", FixedFile(1, 256));
    ASSERT_TRUE(Put(file, "k", std::string(500, 'd')));
    qx::FilePart& overflow = Record(file).OverflowPart;
    qx::ClaimMutex::Node node;
    ASSERT_TRUE(overflow.Cached.Mutex.TryClaim(node));
    const uint32_t suspends = overflow.Cached.Mutex.Suspends();
    std::thread holder([&] {
        StatusRecord status{};
        EXPECT_EQ(QXLockGroup(file, kSelectHold, 0, &status), 1);
    });
    while (overflow.Cached.Mutex.Suspends() == suspends) {
        std::this_thread::yield();
    }
    overflow.Cached.AddUser();
    overflow.Cached.Mutex.Release(node);
    holder.join();
    EXPECT_TRUE(overflow.Cached.IsOpen());
    overflow.Cached.Leave();
    EXPECT_TRUE(UnlockGroup(file, kSelectHold));
    EXPECT_EQ(Get(file, "k"), std::string(500, 'd'));
}

// The session that holds a group holds off every other user of the file.
TEST_F(ConcurrentGroupLockCalls, OtherThreadsWaitForTheHolder) {
    const uint32_t file = CreateAndOpen("F");
    ASSERT_TRUE(Put(file, "k", "before"));
    ASSERT_TRUE(LockGroup(file, 0));
    qx::ClaimMutex& mutex = Record(file).PrimaryPart.Cached.Mutex;
    const uint32_t suspends = mutex.Suspends();
    std::atomic<bool> done{false};
    std::thread reader([&] {
        EXPECT_EQ(Get(file, "k"), "before");
        done = true;
    });
    while (mutex.Suspends() == suspends) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(done);
    EXPECT_EQ(QXUnlockGroup(file, 0, nullptr), 1);
    reader.join();
    ExpectNothingHeld();
}

// A call in a thread of its own, which is not waited for without end.
class CallBeside {
  public:
    explicit CallBeside(std::function<int32_t()> call)
        : thread_([this, call = std::move(call)] {
              EXPECT_EQ(call(), 1);
              done_ = true;
          }) {}
    ~CallBeside() { thread_.join(); }

    bool IsDone() const { return done_; }

  private:
    std::atomic<bool> done_{false};
    std::thread thread_;
};

bool Comes(const std::function<bool()>& event) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!event()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

// Whoever closes a handle or session in the middle of a walk waits for the holder of a group; the holder can do
// everything else meanwhile, and gives the group up although a call has the API mutex.
TEST_F(ConcurrentGroupLockCalls, ClosingKeepsNobodyFromGivingTheGroupUp) {
    EXPECT_TRUE(Create("F", FixedFile(3, 256)));
    EXPECT_TRUE(Create("G"));
    const uint32_t first = Session;
    for (const bool wholeSession : {false, true}) {
        OpenSession();
        const uint32_t walking = Session;
        const uint32_t walked = Open("F");
        ASSERT_TRUE(Run([&](StatusRecord* status) { return QXReadNextKeyIdGroup(walked, kData, status); }));
        OpenSession();
        const uint32_t holding = Session;
        const uint32_t locked = Open("F");
        ASSERT_TRUE(LockGroup(locked, 1));
        qx::OpenFile& record = Record(locked);
        const auto close = [wholeSession](uint32_t session, uint32_t file) {
            return wholeSession ? QXCloseSession(session, nullptr) : QXCloseFile(file, nullptr);
        };
        const uint32_t suspends = record.PrimaryPart.Cached.Mutex.Suspends();
        const CallBeside waiting([=] { return close(walking, walked); });
        ASSERT_TRUE(Comes([&] { return record.PrimaryPart.Cached.Mutex.Suspends() != suspends; }));
        uint32_t other = kNone;
        const CallBeside opening([&, path = Path("G")] {
            Buffer(kName) = path;
            return QXOpenFile(holding, kName, nullptr, &other, nullptr);
        });
        const bool opened = Comes([&] { return opening.IsDone(); });
        EXPECT_TRUE(opened) << "the closing call has the API mutex";
        if (!opened) {
            EXPECT_EQ(QXUnlockGroup(locked, 1, nullptr), 1);
        }
        std::optional<qx::ClaimHold> api(std::in_place, qx::theLibrary.ApiMutex);
        const CallBeside giving([=] { return close(holding, locked); });
        EXPECT_TRUE(Comes([&] { return record.CallerLocks == 0; })) << "the API mutex comes first";
        api.reset();
    }
    Session = first;
    ExpectNothingHeld();
}

// A call that came in before the handle or session is withdrawn may have taken a group since it was last looked for.
TEST_F(ConcurrentGroupLockCalls, AGroupTakenLateGoesWithTheHandle) {
    CreateAndOpen("F", FixedFile(3, 256));
    const uint32_t first = Session;
    for (const bool wholeSession : {false, true}) {
        OpenSession();
        const uint32_t file = Open("F");
        std::optional<qx::ClaimHold> api(std::in_place, qx::theLibrary.ApiMutex);
        const uint32_t suspends = qx::theLibrary.ApiMutex.Suspends();
        const CallBeside closing(
            [=, this] { return wholeSession ? QXCloseSession(Session, nullptr) : QXCloseFile(file, nullptr); });
        ASSERT_TRUE(Comes([&] { return qx::theLibrary.ApiMutex.Suspends() != suspends; }));
        EXPECT_TRUE(LockGroup(file, 1));
        api.reset();
    }
    Session = first;
    ExpectNothingHeld();
}

// A handle that is being closed is not given out again.
TEST_F(ConcurrentGroupLockCalls, AHandleThatIsBeingClosedIsNotReused) {
    const uint32_t file = CreateAndOpen("F", FixedFile(3, 256));
    ASSERT_TRUE(Run([&](StatusRecord* status) { return QXReadNextKeyIdGroup(file, kData, status); }));
    const uint32_t session = Session;
    OpenSession();
    const uint32_t locked = Open("F");
    ASSERT_TRUE(LockGroup(locked, 1));
    const uint32_t suspends = Record(file).PrimaryPart.Cached.Mutex.Suspends();
    const CallBeside closing([file] { return QXCloseFile(file, nullptr); });
    ASSERT_TRUE(Comes([&] { return Record(locked).PrimaryPart.Cached.Mutex.Suspends() != suspends; }));
    Session = session;
    EXPECT_NE(Open("F", {sizeof(OpenOptions), 1, 0, 0, 0, 0, 0, 0}), file);
    EXPECT_TRUE(UnlockGroup(locked, 1));
}

// The end of the library closes sessions one by one: a walk in one, and a group of the same file in a later one.
TEST_F(GroupLockCalls, TheEndOfTheLibraryGivesEveryGroupUpFirst) {
    const uint32_t file = CreateAndOpen("F", FixedFile(3, 256));
    ASSERT_TRUE(Run([&](StatusRecord* status) { return QXReadNextKeyIdGroup(file, kData, status); }));
    OpenSession();
    ASSERT_TRUE(LockGroup(Open("F"), 1));
}

}  // namespace
}  // namespace qx_test
