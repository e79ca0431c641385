// QXSharedLockFile, QXExclusiveLockFile, QXUnlockFile, QXSharedLockRecord, QXExclusiveLockRecord, QXUnlockRecord,
// QXUnlockAll.
#include "runtime/library_record.h"
#include "runtime/lock_heap.h"
#include "support/file_test.h"
#include "support/held_ranges.h"

namespace qx_test {
namespace {

using qx::Counter;

class LockCalls : public FileTest {
  protected:
    Status LockFile(uint32_t file, bool exclusive) {
        return Called([&](StatusRecord* status) {
            return exclusive ? QXExclusiveLockFile(file, status) : QXSharedLockFile(file, status);
        });
    }
    Status LockRecord(uint32_t file, std::string_view key, bool exclusive) {
        Buffer(kKey) = key;
        return Called([&](StatusRecord* status) {
            return exclusive ? QXExclusiveLockRecord(file, kKey, status) : QXSharedLockRecord(file, kKey, status);
        });
    }
    Status UnlockFile(uint32_t file) {
        return Called([&](StatusRecord* status) { return QXUnlockFile(file, status); });
    }
    Status UnlockRecord(uint32_t file, std::string_view key) {
        Buffer(kKey) = key;
        return Called([&](StatusRecord* status) { return QXUnlockRecord(file, kKey, status); });
    }
    static Status UnlockAll(uint32_t session) {
        return Called([&](StatusRecord* status) { return QXUnlockAll(session, status); });
    }
    static size_t Locks() { return qx::theLockHeap.BlockCount(); }
};

TEST_F(LockCalls, SayWhoIsInTheWay) {
    const uint32_t file = CreateAndOpen("F");
    const uint32_t first = Session;
    OpenSession();
    const uint32_t others = Open("F");
    EXPECT_EQ(LockFile(file, false), kNothing);
    EXPECT_EQ(LockFile(others, false), kNothing);
    EXPECT_EQ(LockFile(others, true), (Status{414, 0, 0}));
    EXPECT_EQ(UnlockFile(others), kNothing);
    EXPECT_EQ(LockFile(others, true), (Status{415, 0, 0}));
    EXPECT_EQ(UnlockFile(others), (Status{411, 0, 0}));
    EXPECT_EQ(LockRecord(file, "K", true), kNothing);
    EXPECT_EQ(LockRecord(file, "L", false), kNothing);
    EXPECT_EQ(LockRecord(others, "K", false), (Status{415, 0, 0}));
    EXPECT_EQ(LockRecord(others, "L", false), kNothing);
    EXPECT_EQ(LockRecord(file, "L", true), (Status{414, 0, 0}));
    EXPECT_EQ(UnlockRecord(others, "K"), (Status{412, 0, 0}));
    EXPECT_TRUE(Put(others, "K", "data")) << "the library's own work does not ask";
    EXPECT_EQ(UnlockAll(Session), kNothing);
    Session = first;
    EXPECT_EQ(UnlockAll(Session), kNothing);
    EXPECT_EQ(UnlockAll(Session), kNothing) << "with none held, too";
    EXPECT_EQ(UnlockAll(7), (Status{1100, 0, 1}));
}

TEST_F(LockCalls, FailWithoutATrace) {
    const uint32_t file = CreateAndOpen("F");
    const Holdings before = Held();
    const uint32_t memoryErrors = CountOf(Counter::AllocateLockDataErrors);
    const auto failing = [&](Call call, Status expected) {
        Faults.Fail(call, 1);
        EXPECT_EQ(LockFile(file, false), expected);
        Faults.Fail(call, 1);
        EXPECT_EQ(LockRecord(file, "K", true), expected);
        EXPECT_EQ(Locks(), 0U);
        EXPECT_EQ(Held(), before);
    };
    failing(Call::HeapAllocate, {1017, 0, 0});
    EXPECT_EQ(CountOf(Counter::AllocateLockDataErrors), memoryErrors + 2);
    failing(Call::Lock, {1010, 0, 0});
    RefuseCallback(0, 1, {7, 8, 9});
    EXPECT_EQ(LockRecord(file, "K", true), (Status{160, 0, 0}));
    RefuseCallback(0, 1, {7, 8, 9});
    EXPECT_EQ(UnlockRecord(file, "K"), (Status{7, 8, 9})) << "here the callback's own word";
    AcceptCallbacks();

    // Nobody can be waited for without an event, and then nothing is done.
    ASSERT_EQ(LockFile(file, false), kNothing);
    qx::SessionRecord& session = *qx::theLibrary.Sessions.PayloadOf<qx::SessionRecord>(Session);
    for (qx::ClaimMutex* mutex : {&session.LockMutex, &Record(file).Locks.Mutex}) {
        qx::ClaimMutex::Node node;
        ASSERT_TRUE(mutex->TryClaim(node));
        Faults.Fail(Call::EventReset, 1, qx::SystemError::Other, true);
        Faults.Fail(Call::EventCreate, 1, qx::SystemError::Other, true);
        for (const Status& status : {LockFile(file, true), LockRecord(file, "K", true), UnlockFile(file),
                                     UnlockRecord(file, "K"), UnlockAll(Session)}) {
            EXPECT_EQ(status, (Status{1028, 0, 0}));
        }
        Faults.Clear();
        mutex->Release(node);
        EXPECT_EQ(Locks(), 1U);
    }
    EXPECT_EQ(UnlockFile(file), kNothing);
    EXPECT_EQ(Held(), before);
}

TEST_F(LockCalls, EndWithWhatTheyWereTakenThrough) {
    const uint32_t file = CreateAndOpen("F");
    const uint32_t second = Open("F");
    const uint32_t other = CreateAndOpen("G");
    const auto takeAll = [&] {
        EXPECT_EQ(LockFile(file, true), kNothing);
        EXPECT_EQ(LockRecord(file, "K", true), kNothing);
        EXPECT_EQ(LockRecord(second, "L", false), kNothing);
        EXPECT_EQ(LockFile(other, false), kNothing);
        EXPECT_EQ(LockRecord(other, "K", false), kNothing);
    };
    takeAll();
    EXPECT_EQ(UnlockFile(second), kNothing) << "through another handle on the file";
    EXPECT_EQ(UnlockRecord(second, "K"), kNothing);
    EXPECT_EQ(UnlockRecord(second, "K"), (Status{412, 0, 0}));
    EXPECT_EQ(Locks(), 3U);
    ASSERT_TRUE(LockGroup(file, 0));
    EXPECT_EQ(UnlockAll(Session), kNothing);
    EXPECT_EQ(Locks(), 0U);
    ExpectNothingHeld();

    takeAll();
    EXPECT_TRUE(Close(file));
    EXPECT_EQ(Locks(), 3U);
    EXPECT_TRUE(Close(second));
    EXPECT_EQ(Locks(), 2U);
    const uint32_t first = Session;
    OpenSession();
    const uint32_t others = Open("G");
    EXPECT_EQ(LockFile(others, true), (Status{415, 0, 0}));
    EXPECT_TRUE(Run([&](StatusRecord* status) { return QXCloseSession(first, status); }));
    EXPECT_EQ(Locks(), 0U);
    EXPECT_EQ(LockFile(others, true), kNothing);  // which the end of the library finds held
}

TEST_F(LockCalls, AreCountedAndReachTheLockFile) {
    const uint32_t file = CreateAndOpen("CUST");
    const uint32_t session = Session;
    EXPECT_EQ(LockFile(file, false), kNothing);
    EXPECT_EQ(LockRecord(file, "K1", true), kNothing);
    const std::vector<Range> ranges = HeldRanges(Path("MOXLOCKS"));
    constexpr uint64_t kFirst = 0x7FFFFFFF00000000;
    EXPECT_EQ(ranges, (std::vector<Range>{{kFirst + 1, kFirst + 1},  // the user slot
                                          {kFirst + 0x1EA7AC00, kFirst + 0x1EA7AC00},
                                          {kFirst + 0x598BAC00, kFirst + 0x598BAFFF}}));
    EXPECT_EQ(UnlockFile(file), kNothing);
    EXPECT_EQ(UnlockRecord(file, "K1"), kNothing);
    EXPECT_EQ(LockFile(file, true), kNothing);
    EXPECT_EQ(LockRecord(file, "K1", false), kNothing);
    EXPECT_EQ(UnlockAll(session), kNothing);
    EXPECT_EQ(HeldRanges(Path("MOXLOCKS")).size(), 1U);
    const qx::CounterSet& ofSession = qx::theLibrary.Sessions.PayloadOf<qx::SessionRecord>(session)->Counters;
    for (const Counter counter : {Counter::SharedLockFiles, Counter::ExclusiveLockFiles, Counter::UnlockFiles,
                                  Counter::SharedLockRecords, Counter::ExclusiveLockRecords, Counter::UnlockRecords}) {
        for (const qx::CounterSet* level :
             {&ofSession, &std::as_const(Record(file).Volume.Counters), &std::as_const(Record(file).Counters),
              &std::as_const(Handle(file).Counters)}) {
            EXPECT_EQ(level->Value(counter), 1U) << static_cast<int>(counter);
        }
    }
    EXPECT_EQ(ofSession.Value(Counter::UnlockAlls), 1U);
}

}  // namespace
}  // namespace qx_test
