#include "locking/byte_lock_table.h"

#include <atomic>
#include <deque>
#include <list>
#include <map>
#include <random>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "support/fake_time.h"
#include "support/held_ranges.h"
#include "support/process_set_up.h"
#include "support/test_library.h"
#include "support/test_seed.h"

namespace qx_test {
namespace {

using Call::Lock;
using qx::ByteLock;
using qx::ByteLockResult;
using qx::ByteLockRow;

constexpr uint32_t kUsers = 8;
constexpr bool kShared = false;
constexpr bool kExclusive = true;

class ByteLockTable : public ProcessSetUp {
  protected:
    ~ByteLockTable() override { EXPECT_EQ(HeldRanges(Path), std::vector<Range>{}); }

    // Descriptors of one process get on with each other as those of different processes do.
    struct Process {
        Process(const std::string& path, uint32_t userSlot) {
            WriteWholeFile(path, "");
            File = {qx::kNoOsHandle, true, userSlot, qx::LockMap(kUsers)};
            qx::thePlatform.Files->Open(path.c_str(), qx::Access::ReadWrite, qx::Sharing::None, &File.Handle);
        }
        ~Process() { qx::thePlatform.Files->Close(File.Handle); }

        qx::LockFile File;
        qx::ByteLockTable Table{File};
    };

    // The units that the tests lock lie side by side.
    static uint32_t Unit(uint32_t number) { return 0x80000000 + number * kUsers; }
    static qx::LockUnits Units(uint32_t first, uint32_t count) { return {Unit(first), count}; }

    static ByteLockResult Acquire(Process& process, ByteLock& lock, uint32_t unit, bool exclusive,
                                  uint32_t timeout = 0) {
        return process.Table.Acquire(lock, Unit(unit), exclusive, timeout);
    }

    static Range SharedBy(const Process& process, uint32_t unit) {
        const uint64_t at = 0x7FFFFFFF00000000 + Unit(unit) + process.File.UserSlot;
        return {at, at};
    }
    static Range WholeUnits(uint32_t first, uint32_t count = 1) {
        const uint64_t at = 0x7FFFFFFF00000000 + Unit(first);
        return {at, at + uint64_t{count} * kUsers - 1};
    }
    std::vector<Range> Held() const { return HeldRanges(Path); }

    const TestDirectory Directory;
    const std::string Path = Directory.File("MOXLOCKS");
    Process A{Path, 3};
    Process B{Path, 5};
};

using Ranges = std::vector<Range>;

TEST_F(ByteLockTable, SharersOfAProcessTakeOneByteAndGiveItUpWithTheLast) {
    ByteLock first, second, ofOther;
    EXPECT_EQ(Acquire(A, first, 7, kShared), ByteLockResult::Granted);
    EXPECT_EQ(Held(), (Ranges{SharedBy(A, 7)}));
    const uint64_t calls = Platform.Count(Lock);
    EXPECT_EQ(Acquire(A, second, 7, kShared), ByteLockResult::Granted);
    EXPECT_EQ(Platform.Count(Lock), calls);
    EXPECT_EQ(Acquire(B, ofOther, 7, kShared), ByteLockResult::Granted);
    EXPECT_EQ(Held(), (Ranges{SharedBy(A, 7), SharedBy(B, 7)}));
    A.Table.Release(first);
    EXPECT_EQ(Held(), (Ranges{SharedBy(A, 7), SharedBy(B, 7)})) << "the second owns the byte now";
    A.Table.Release(second);
    EXPECT_EQ(Held(), (Ranges{SharedBy(B, 7)}));
    A.Table.Release(second);
    B.Table.Release(ofOther);
}

TEST_F(ByteLockTable, LocksOfAProcessShareAUnitUnlessOneHasTooLittle) {
    ByteLock first, second, third;
    ASSERT_EQ(Acquire(A, first, 7, kExclusive), ByteLockResult::Granted);
    EXPECT_EQ(Acquire(A, second, 7, kShared), ByteLockResult::Granted);
    EXPECT_TRUE(second.Exclusive);
    EXPECT_EQ(Acquire(A, third, 7, kExclusive), ByteLockResult::Granted);
    ByteLock ofOther;
    EXPECT_EQ(Acquire(B, ofOther, 7, kShared), ByteLockResult::Refused);
    A.Table.Release(first);
    A.Table.Release(third);
    EXPECT_EQ(Held(), (Ranges{WholeUnits(7)})) << "what asked for a share keeps the unit";
    A.Table.Release(second);
    EXPECT_EQ(Held(), Ranges{});

    ASSERT_EQ(Acquire(A, first, 7, kShared), ByteLockResult::Granted);
    EXPECT_EQ(Acquire(A, second, 7, kExclusive), ByteLockResult::RefusedInside);
    EXPECT_FALSE(second.IsHeld());
    EXPECT_EQ(Acquire(B, ofOther, 7, kExclusive), ByteLockResult::Refused);
    EXPECT_EQ(Acquire(B, ofOther, 8, kExclusive), ByteLockResult::Granted);
    std::vector<qx::ByteLockTable::Entry> entries(3);
    EXPECT_EQ(Acquire(A, second, 2, kShared), ByteLockResult::Granted);
    EXPECT_EQ(Acquire(A, third, 7, kShared), ByteLockResult::Granted);
    EXPECT_EQ(A.Table.Snapshot(std::span(entries).first(2)), 3U);
    EXPECT_EQ(A.Table.Snapshot(entries), 3U);
    EXPECT_EQ(entries[0].Offset, Unit(2));
    EXPECT_EQ(entries[2].Offset, Unit(7));
    for (ByteLock* lock : {&first, &second, &third}) {
        A.Table.Release(*lock);
    }
    B.Table.Release(ofOther);
}

TEST_F(ByteLockTable, TheLockServiceIsAskedOnceOrUntilTheTimeIsUp) {
    FakeTime time;
    ByteLock held, wanted;
    ASSERT_EQ(Acquire(A, held, 7, kExclusive), ByteLockResult::Granted);
    const uint64_t calls = Platform.Count(Lock);
    EXPECT_EQ(Acquire(B, wanted, 7, kShared, 0), ByteLockResult::Refused);
    EXPECT_EQ(Platform.Count(Lock), calls + 1);
    EXPECT_EQ(Acquire(B, wanted, 7, kShared, 5), ByteLockResult::Refused);
    EXPECT_GT(time.Elapsed(), 5000U);
    EXPECT_LE(time.Elapsed(), 5055U);
    Platform.Fail(Lock, 1);
    EXPECT_EQ(Acquire(B, wanted, 7, kShared, 5), ByteLockResult::Failed);
    EXPECT_EQ(B.Table.Snapshot({}), 0U);
    time.DuringSleep = [&] { A.Table.Release(held); };
    EXPECT_EQ(Acquire(B, wanted, 7, kShared, 5), ByteLockResult::Granted);
    EXPECT_EQ(Held(), (Ranges{SharedBy(B, 7)}));
    B.Table.Release(wanted);

    A.File.Supported = false;
    EXPECT_EQ(Acquire(A, held, 7, kExclusive), ByteLockResult::Granted);
    EXPECT_EQ(A.Table.AcquireRow(*std::make_unique<ByteLockRow>(), Units(0, 4), 0), ByteLockResult::Granted);
    EXPECT_EQ(Held(), Ranges{});
    A.Table.Release(held);
}

class ConcurrentByteLockTable : public ByteLockTable {
  protected:
    // Starts a thread that asks for a lock and returns once it waits inside the process.
    void AskAndWait(ByteLock& lock, uint32_t unit, bool exclusive) {
        const uint32_t taken = qx::theWaitEvents.TakenCount();
        const size_t index = results_.size();
        results_.emplace_back();
        threads_.emplace_back(
            [this, &lock, unit, exclusive, index] { results_[index] = Acquire(A, lock, unit, exclusive); });
        while (qx::theWaitEvents.TakenCount() == taken) {
            std::this_thread::yield();
        }
    }

    std::vector<ByteLockResult> Results() {
        for (std::thread& thread : threads_) {
            thread.join();
        }
        threads_.clear();
        return {results_.begin(), results_.end()};
    }

  private:
    std::vector<std::thread> threads_;
    std::deque<ByteLockResult> results_;
};

// The owner sits in the lock service while the others come.
TEST_F(ConcurrentByteLockTable, ThoseBehindAnOwnerGetWhatItGets) {
    FakeTime time;
    for (const bool granted : {false, true}) {
        ByteLock obstacle, owner, shared, exclusive;
        ASSERT_EQ(Acquire(B, obstacle, 7, kShared), ByteLockResult::Granted);
        bool first = true;
        time.DuringSleep = [&] {
            if (std::exchange(first, false)) {
                AskAndWait(shared, 7, kShared);
                AskAndWait(exclusive, 7, kExclusive);
                if (granted) {
                    B.Table.Release(obstacle);
                }
            }
        };
        const ByteLockResult expected = granted ? ByteLockResult::Granted : ByteLockResult::Refused;
        EXPECT_EQ(Acquire(A, owner, 7, kExclusive, 3), expected);
        const auto results = Results();
        EXPECT_EQ(std::vector(results.end() - 2, results.end()), (std::vector{expected, expected}));
        EXPECT_EQ(shared.IsHeld(), granted);
        EXPECT_EQ(A.Table.Snapshot({}), granted ? 3U : 0U);
        for (ByteLock* lock : {&owner, &shared, &exclusive}) {
            A.Table.Release(*lock);
        }
        B.Table.Release(obstacle);
    }
}

TEST_F(ConcurrentByteLockTable, ThoseWhoComeWhileTheUnitIsGivenUpLockItAnew) {
    ByteLock owner, first, second;
    ASSERT_EQ(Acquire(A, owner, 7, kExclusive), ByteLockResult::Granted);
    const uint64_t calls = Platform.Count(Lock);
    bool once = true;
    Platform.DuringUnlock = [&] {
        if (std::exchange(once, false)) {
            AskAndWait(first, 7, kShared);
            AskAndWait(second, 7, kShared);
        }
    };
    A.Table.Release(owner);
    EXPECT_EQ(Results(), (std::vector{ByteLockResult::Granted, ByteLockResult::Granted}));
    EXPECT_EQ(Platform.Count(Lock), calls + 1) << "by the first of them, for both";
    EXPECT_EQ(Held(), (Ranges{WholeUnits(7)}));
    A.Table.Release(first);
    A.Table.Release(second);

    // Without an event to wait on.
    ASSERT_EQ(Acquire(A, owner, 7, kExclusive), ByteLockResult::Granted);
    while (const auto event = qx::theWaitEvents.Take()) {
        qx::theWaitEvents.GiveBack(*event);
        Platform.Fail(Call::EventReset, 1, qx::SystemError::Other, true);
    }
    once = true;
    Platform.DuringUnlock = [&] {
        EXPECT_EQ(Acquire(A, first, 7, kShared), ByteLockResult::RefusedInside);
        EXPECT_FALSE(first.IsHeld());
    };
    A.Table.Release(owner);
    Platform.DuringUnlock = nullptr;
}

TEST_F(ConcurrentByteLockTable, ALockThatComesWhileARowIsGivenUpIsNotGivenUpWithIt) {
    ByteLockRow row;
    ASSERT_EQ(A.Table.AcquireRow(row, Units(10, 20), 0), ByteLockResult::Granted);
    ByteLock lock;
    std::atomic<bool> done{false};
    std::thread thread;
    Platform.DuringUnlock = [&] {
        thread = std::thread([&] {
            EXPECT_EQ(Acquire(A, lock, 15, kShared), ByteLockResult::Granted);
            done = true;
        });
        for (int i = 0; i < 1000 && !done; ++i) {
            std::this_thread::yield();  // the lock has to wait; it gets every chance not to
        }
    };
    A.Table.ReleaseRow(row);
    Platform.DuringUnlock = nullptr;
    thread.join();
    EXPECT_EQ(Held(), (Ranges{SharedBy(A, 15)}));
    A.Table.Release(lock);
}

// What a process would have to hold after any series of calls, worked out unit by unit.
class Model {
  public:
    static constexpr uint32_t kUnits = 12;

    explicit Model(uint32_t userSlot) : userSlot_(userSlot) {}

    struct Unit {
        std::multiset<const void*> Locks;
        std::multiset<const void*> Rows;
        bool Exclusive = false;
        bool ForeignShare = false;
        bool ForeignWhole = false;

        bool IsFree() const { return Locks.empty() && Rows.empty(); }
    };
    std::array<Unit, kUnits> Units;

    ByteLockResult Acquire(const void* lock, uint32_t unit, bool exclusive) {
        Unit& on = Units[unit];
        const ByteLockResult result = Ask(on, exclusive);
        if (result == ByteLockResult::Granted) {
            on.Exclusive = on.IsFree() ? exclusive : on.Exclusive;
            on.Locks.insert(lock);
        }
        return result;
    }

    ByteLockResult AcquireRow(const void* row, uint32_t first, uint32_t count) {
        for (uint32_t unit = first; unit < first + count; ++unit) {
            const ByteLockResult result = Ask(Units[unit], true);
            if (result != ByteLockResult::Granted) {
                return result;
            }
        }
        for (uint32_t unit = first; unit < first + count; ++unit) {
            Units[unit].Exclusive = true;
            Units[unit].Rows.insert(row);
        }
        return ByteLockResult::Granted;
    }

    void Release(const void* holder) {
        for (Unit& unit : Units) {
            unit.Locks.erase(holder);
            unit.Rows.erase(holder);
        }
    }

    std::vector<Range> Held() const {
        constexpr uint64_t kFirst = 0x7FFFFFFF80000000;
        std::vector<Range> ranges;
        for (uint32_t i = 0; i < kUnits; ++i) {
            const Unit& unit = Units[i];
            const uint64_t start = kFirst + uint64_t{i} * kUsers;
            if (unit.ForeignWhole || (!unit.IsFree() && unit.Exclusive)) {
                ranges.emplace_back(start, start + kUsers - 1);
            } else if (!unit.IsFree()) {
                ranges.emplace_back(start + userSlot_, start + userSlot_);
            }
            if (unit.ForeignShare) {
                ranges.emplace_back(start + 5, start + 5);
            }
        }
        return Joined(std::move(ranges));
    }

  private:
    static ByteLockResult Ask(const Unit& unit, bool exclusive) {
        if (!unit.IsFree()) {
            return exclusive && !unit.Exclusive ? ByteLockResult::RefusedInside : ByteLockResult::Granted;
        }
        return unit.ForeignWhole || (exclusive && unit.ForeignShare) ? ByteLockResult::Refused
                                                                     : ByteLockResult::Granted;
    }

    const uint32_t userSlot_;
};

TEST_F(ByteLockTable, LocksAndRowsHoldExactlyTheirBytes) {
    std::mt19937_64 random(TestSeed());
    const auto pick = [&](size_t count) { return static_cast<uint32_t>(random() % count); };
    Model model(A.File.UserSlot);
    std::list<ByteLock> locks;
    std::list<ByteLockRow> rows;
    std::map<uint32_t, ByteLock> foreign;
    const auto releaseOne = [&](auto& holders, auto&& release) {
        if (!holders.empty()) {
            const auto it = std::next(holders.begin(), pick(holders.size()));
            release(*it);
            model.Release(&*it);
            holders.erase(it);
        }
    };
    for (int step = 0; step < 6000; ++step) {
        const uint32_t unit = pick(Model::kUnits);
        switch (pick(10)) {
            case 0:
            case 1:
            case 2: {
                const bool exclusive = pick(2) == 0;
                ByteLock& lock = locks.emplace_back();
                const ByteLockResult expected = model.Acquire(&lock, unit, exclusive);
                ASSERT_EQ(Acquire(A, lock, unit, exclusive), expected);
                if (expected != ByteLockResult::Granted) {
                    locks.pop_back();
                }
                break;
            }
            case 3:
            case 4: {
                const uint32_t count = pick(Model::kUnits - unit) + 1;
                ByteLockRow& row = rows.emplace_back();
                const ByteLockResult expected = model.AcquireRow(&row, unit, count);
                ASSERT_EQ(A.Table.AcquireRow(row, Units(unit, count), 0), expected);
                if (expected != ByteLockResult::Granted) {
                    rows.pop_back();
                }
                break;
            }
            case 5: {  // the other process
                Model::Unit& on = model.Units[unit];
                if (foreign.contains(unit)) {
                    B.Table.Release(foreign[unit]);
                    foreign.erase(unit);
                    on.ForeignShare = on.ForeignWhole = false;
                } else if (pick(3) == 0) {
                    const bool exclusive = pick(2) == 0;
                    const bool free = on.IsFree() || (!exclusive && !on.Exclusive);
                    ASSERT_EQ(Acquire(B, foreign[unit], unit, exclusive),
                              free ? ByteLockResult::Granted : ByteLockResult::Refused);
                    (exclusive ? on.ForeignWhole : on.ForeignShare) = free;
                    if (!free) {
                        foreign.erase(unit);
                    }
                }
                break;
            }
            case 6:
            case 7:
                releaseOne(rows, [&](ByteLockRow& row) { A.Table.ReleaseRow(row); });
                break;
            default:
                releaseOne(locks, [&](ByteLock& lock) { A.Table.Release(lock); });
        }
        ASSERT_EQ(Held(), model.Held()) << "step " << step;
    }
    while (!locks.empty() || !rows.empty()) {
        releaseOne(locks, [&](ByteLock& lock) { A.Table.Release(lock); });
        releaseOne(rows, [&](ByteLockRow& row) { A.Table.ReleaseRow(row); });
        ASSERT_EQ(Held(), model.Held());
    }
    for (auto& [unit, lock] : foreign) {
        B.Table.Release(lock);
    }
}

// A row takes what it can get at once, and waits for the rest unit by unit.
TEST_F(ByteLockTable, ARowWaitsForOtherProcesses) {
    FakeTime time;
    ByteLock obstacles[2];
    ASSERT_EQ(Acquire(B, obstacles[0], 40, kShared), ByteLockResult::Granted);
    ASSERT_EQ(Acquire(B, obstacles[1], 90, kExclusive), ByteLockResult::Granted);
    size_t next = 0;
    time.DuringSleep = [&] {
        EXPECT_EQ(Held()[0], (next == 0 ? Range(WholeUnits(10, 30).first, WholeUnits(39).second)
                                        : Range(WholeUnits(10).first, WholeUnits(90).second)));
        B.Table.Release(obstacles[next++]);
    };
    ByteLockRow row;
    const uint64_t calls = Platform.Count(Lock);
    EXPECT_EQ(A.Table.AcquireRow(row, Units(10, 1000), 5), ByteLockResult::Granted);
    EXPECT_EQ(next, 2U);
    EXPECT_LT(Platform.Count(Lock) - calls, 250U);
    EXPECT_EQ(Held(), (Ranges{WholeUnits(10, 1000)}));
    A.Table.ReleaseRow(row);

    ASSERT_EQ(Acquire(B, obstacles[0], 40, kShared), ByteLockResult::Granted);
    time.DuringSleep = nullptr;
    const uint64_t start = time.Elapsed();
    EXPECT_EQ(A.Table.AcquireRow(row, Units(10, 1000), 5), ByteLockResult::Refused);
    EXPECT_GT(time.Elapsed() - start, 5000U);
    EXPECT_EQ(Held(), (Ranges{SharedBy(B, 40)}));
    B.Table.Release(obstacles[0]);
}

// Threads of two processes; every unit knows who is inside.
TEST_F(ConcurrentByteLockTable, ProcessesNeverMeet) {
    constexpr uint32_t kUnits = 6;
    struct Unit {
        std::atomic<int> Inside[2]{};     // locks of each process
        std::atomic<int> Exclusive[2]{};  // and those among them that asked for all of it
    };
    std::array<Unit, kUnits> units;
    const auto enter = [&](uint32_t unit, int process, bool exclusive) {
        ++units[unit].Inside[process];
        units[unit].Exclusive[process] += exclusive;
        EXPECT_EQ(units[unit].Exclusive[1 - process], 0);
        EXPECT_TRUE(!exclusive || units[unit].Inside[1 - process] == 0);
    };
    const auto leave = [&](uint32_t unit, int process, bool exclusive) {
        units[unit].Exclusive[process] -= exclusive;
        --units[unit].Inside[process];
    };
    const uint64_t seed = TestSeed();
    std::atomic<uint32_t> granted{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937_64 random(seed + static_cast<uint64_t>(t));
            const int process = t % 2;
            Process& own = process == 0 ? A : B;
            for (int i = 0; i < 1500; ++i) {
                const auto unit = static_cast<uint32_t>(random() % kUnits);
                const bool asRow = t < 2 && random() % 4 == 0;
                const bool exclusive = asRow || random() % 2 == 0;
                const uint32_t count = asRow ? kUnits - unit : 1;
                const uint32_t timeout = random() % 2 == 0 ? 0 : 60;
                ByteLock lock;
                ByteLockRow row;
                const ByteLockResult result = asRow ? own.Table.AcquireRow(row, Units(unit, count), timeout)
                                                    : Acquire(own, lock, unit, exclusive, timeout);
                EXPECT_NE(result, ByteLockResult::Failed);
                if (result != ByteLockResult::Granted) {
                    continue;
                }
                ++granted;
                for (uint32_t at = unit; at < unit + count; ++at) {
                    enter(at, process, exclusive);
                }
                if (random() % 4 == 0) {
                    std::this_thread::yield();
                }
                for (uint32_t at = unit; at < unit + count; ++at) {
                    leave(at, process, exclusive);
                }
                asRow ? own.Table.ReleaseRow(row) : own.Table.Release(lock);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GT(granted, 0U);
    EXPECT_EQ(A.Table.Snapshot({}) + B.Table.Snapshot({}), 0U);
}

}  // namespace
}  // namespace qx_test
