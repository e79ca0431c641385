// QXSharedLockFile, QXExclusiveLockFile, QXUnlockFile, QXSharedLockRecord, QXExclusiveLockRecord, QXUnlockRecord,
// QXUnlockAll.
#include "runtime/lock_heap.h"
#include "support/file_test.h"

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

}  // namespace
}  // namespace qx_test
