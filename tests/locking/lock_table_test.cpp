#include "locking/lock_table.h"

#include <map>
#include <memory>
#include <random>
#include <set>

#include "platform/platform.h"
#include "support/held_ranges.h"
#include "support/other_process.h"
#include "support/process_set_up.h"
#include "support/test_library.h"
#include "support/test_seed.h"

namespace qx_test {
namespace {

using qx::LockOutcome;
using enum LockOutcome;

constexpr bool kShared = false;
constexpr bool kExclusive = true;

// One file's locks as a process sees them, with sessions 1, 2, 3 ...
class Process {
  public:
    Process(const std::string& path, uint32_t userSlot, bool supported = true) {
        File.UserSlot = userSlot;
        File.Supported = supported;
        WriteWholeFile(path, "");
        qx::thePlatform.Files->Open(path.c_str(), qx::Access::ReadWrite, qx::Sharing::None, &File.Handle);
    }
    ~Process() { qx::thePlatform.Files->Close(File.Handle); }

    LockOutcome Lock(uint32_t session, bool exclusive) { return Table.TakeFileLock(Request(session, exclusive)); }
    LockOutcome Lock(uint32_t session, bool exclusive, std::string_view key) {
        return Table.TakeRecordLock(Request(session, exclusive), key);
    }
    bool Unlock(uint32_t session) { return Released(Table.FindFileLock(session)); }
    bool Unlock(uint32_t session, std::string_view key) { return Released(Table.FindRecordLock(session, key)); }

    qx::LockFile File;
    qx::ByteLockTable ByteLocks{File};
    qx::LockTable Table{ByteLocks, qx::HashFileName("CUST")};
    std::map<uint32_t, qx::HeldLocks> OfSession;
    std::map<uint32_t, qx::HeldLocks> OfHandle;  // one a session

  private:
    qx::LockRequest Request(uint32_t session, bool exclusive) {
        return {session, OfSession[session], OfHandle[session], exclusive};
    }

    template <class Lock>
    bool Released(Lock* lock) {
        if (lock != nullptr) {
            Table.Release(*lock);
        }
        return lock != nullptr;
    }
};

class LockTable : public ProcessSetUp {
  protected:
    ~LockTable() override { EXPECT_EQ(HeldRanges(Path), std::vector<Range>{}); }

    const TestDirectory Directory;
    const std::string Path = Directory.File("MOXLOCKS");
};

TEST_F(LockTable, WhoGetsWhatBesideAnotherLock) {
    struct Row {
        bool First;
        bool Second;
        LockOutcome SameSession;
        LockOutcome OtherSession;
        LockOutcome InOtherProcess;
    };
    constexpr Row kRows[] = {
        {kShared, kShared, HeldAlready, Granted, Granted},
        {kShared, kExclusive, HeldAlready, HeldElsewhere, HeldElsewhere},
        {kExclusive, kShared, HeldAlready, HeldElsewhere, HeldElsewhere},
        {kExclusive, kExclusive, HeldAlready, HeldElsewhere, HeldElsewhere},
    };
    for (const bool supported : {true, false}) {
        // The other process asks after the first lock was taken here, for the file and for a record.
        OtherProcess other([&](OtherProcess::Turn& turn) {
            Process there(Path, 1, supported);
            for (const Row& row : kRows) {
                const LockOutcome expected = supported ? row.InOtherProcess : Granted;
                turn.HandOver();
                EXPECT_EQ(there.Lock(1, row.Second), expected);
                EXPECT_EQ(there.Lock(1, row.Second, "K"), expected);
                EXPECT_EQ(there.Lock(1, row.Second, "L"), Granted);
                EXPECT_EQ(there.Unlock(1), expected == Granted);
                EXPECT_EQ(there.Unlock(1, "K"), expected == Granted);
                EXPECT_TRUE(there.Unlock(1, "L"));
            }
        });
        Process here(Path, 0, supported);
        for (const Row& row : kRows) {
            ASSERT_EQ(here.Lock(1, row.First), Granted);
            ASSERT_EQ(here.Lock(1, row.First, "K"), Granted);
            other.Continue();
            EXPECT_EQ(here.Lock(1, row.Second), row.SameSession);
            EXPECT_EQ(here.Lock(1, row.Second, "K"), row.SameSession);
            EXPECT_EQ(here.Lock(1, row.Second, "L"), Granted);
            EXPECT_EQ(here.Lock(2, row.Second), row.OtherSession);
            EXPECT_EQ(here.Lock(2, row.Second, "K"), row.OtherSession);
            EXPECT_FALSE(here.Unlock(3)) << "others' locks";
            EXPECT_FALSE(here.Unlock(3, "K"));
            for (const uint32_t session : {1U, 2U}) {
                EXPECT_EQ(here.Unlock(session), session == 1 || row.OtherSession == Granted);
                EXPECT_EQ(here.Unlock(session, "K"), session == 1 || row.OtherSession == Granted);
            }
            EXPECT_TRUE(here.Unlock(1, "L"));
        }
        EXPECT_TRUE(other.Finish());
    }
}

TEST_F(LockTable, ARefusedLockLeavesNothing) {
    Process process(Path, 0);
    Platform.Fail(Call::Lock, 1);
    EXPECT_EQ(process.Lock(1, kShared), ServiceFailed);
    Platform.Fail(Call::Lock, 1);
    EXPECT_EQ(process.Lock(1, kShared, "K"), ServiceFailed);
    Platform.Fail(Call::HeapAllocate, 1);
    EXPECT_EQ(process.Lock(1, kShared), NoMemory);
    Platform.Fail(Call::HeapAllocate, 1);
    EXPECT_EQ(process.Lock(1, kShared, "K"), NoMemory);
    EXPECT_EQ(qx::theLockHeap.BlockCount(), 0U);
    EXPECT_EQ(HeldRanges(Path), std::vector<Range>{});
    // With few units for all records, another key's lock is in the way, too.
    process.File.Map = qx::LockMap(qx::LockMap::kMostUsers);
    const auto unitOf = [&](std::string_view key) {
        return process.File.Map.RecordUnit(qx::HashRecordKey(qx::HashFileName("CUST"), key));
    };
    std::string other;
    for (int i = 0; other.empty() || unitOf(other) != unitOf("K"); ++i) {
        other = std::to_string(i);
    }
    ASSERT_EQ(process.Lock(1, kShared, "K"), Granted);
    EXPECT_EQ(process.Lock(1, kExclusive, other), RefusedInside);
    EXPECT_EQ(process.Lock(1, kShared, other), Granted);
    EXPECT_TRUE(process.Unlock(1, other));
    EXPECT_TRUE(process.Unlock(1, "K"));
}

// Whatever keys have in common: a key that is spread like another one makes the tree deeper.
TEST_F(LockTable, KeysWithLongEndsInCommonAreSpread) {
    Process process(Path, 0);
    std::set<size_t> spreads;
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(process.Lock(1, kShared, std::to_string(i) + std::string(100, '*')), Granted);
        spreads.insert(process.OfSession[1].Records->Spread());
    }
    EXPECT_EQ(spreads.size(), 100U);
    while (process.OfSession[1].Records != nullptr) {
        process.Table.Release(*process.OfSession[1].Records);
    }
}

// Sessions take and give up locks on many keys; the lists and the tree hold them all, in their orders.
TEST_F(LockTable, KeepsItsOrders) {
    Process process(Path, 0);
    std::mt19937_64 random(TestSeed());
    std::map<std::string, std::vector<std::pair<uint32_t, bool>>> model;  // the holders of each key, the latest first
    std::map<uint32_t, std::vector<std::string>> ofSession;               // the keys of each session, the latest first
    for (int i = 0; i < 4000; ++i) {
        const auto session = static_cast<uint32_t>(1 + random() % 4);
        const uint64_t number = random() % 60;
        const std::string key = number == 0 ? "" : std::to_string(number * 7) + (number % 2 == 0 ? "\xFF" : "");
        const bool exclusive = random() % 4 == 0;
        auto& holders = model[key];
        auto& keys = ofSession[session];
        const auto own = std::find_if(holders.begin(), holders.end(), [&](auto& h) { return h.first == session; });
        const bool held = own != holders.end();
        if (random() % 2 == 0) {
            const bool conflict = !holders.empty() && (exclusive || holders[0].second);
            const LockOutcome expected = held ? HeldAlready : conflict ? HeldElsewhere : Granted;
            ASSERT_EQ(process.Lock(session, exclusive, key), expected);
            if (expected == Granted) {
                holders.insert(holders.begin(), {session, exclusive});
                keys.insert(keys.begin(), key);
            }
        } else {
            ASSERT_EQ(process.Unlock(session, key), held);
            if (held) {
                holders.erase(own);
                std::erase(keys, key);
            }
        }
        std::vector<std::tuple<std::string, uint32_t, bool>> due, found;
        for (const auto& [ofKey, all] : model) {
            for (const auto& [holder, mode] : all) {
                due.emplace_back(ofKey, holder, mode);
            }
        }
        process.Table.ForEachRecordLock(
            [&](const qx::RecordLock& lock) { found.emplace_back(lock.Key(), lock.Owner, lock.Exclusive); });
        ASSERT_EQ(found, due);
        std::vector<std::string> listed[2];
        for (auto* lock = process.OfSession[session].Records; lock != nullptr; lock = lock->OfSession.Next) {
            listed[0].emplace_back(lock->Key());
        }
        for (auto* lock = process.OfHandle[session].Records; lock != nullptr; lock = lock->OfHandle.Next) {
            listed[1].emplace_back(lock->Key());
        }
        ASSERT_EQ(listed[0], keys);
        ASSERT_EQ(listed[1], keys);
    }
    for (auto& [session, locks] : process.OfSession) {
        while (locks.Records != nullptr) {
            process.Table.Release(*locks.Records);
        }
    }
}

}  // namespace
}  // namespace qx_test
