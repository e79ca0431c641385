#include "locking/group_lock_queue.h"

#include <deque>
#include <map>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "support/process_set_up.h"
#include "support/test_seed.h"

namespace qx_test {
namespace {

using qx::Counter;

class GroupLockQueue : public ProcessSetUp {
  protected:
    GroupLockQueue() { counters_.PutBelow(qx::theProcessCounters); }
    ~GroupLockQueue() override { EXPECT_TRUE(Queue.IsEmpty()); }

    qx::GroupLockQueue Queue;

  private:
    qx::CounterSet counters_;  // of the file

  protected:
    const qx::CounterLevels Levels{.File = &counters_};
};

TEST_F(GroupLockQueue, OnlyARequestThatConflictsInItsGroupWaits) {
    std::deque<qx::GroupLockRequest> requests;
    const auto expectGranted = [&](uint32_t group, bool exclusive) {
        EXPECT_TRUE(Queue.Lock(requests.emplace_back(), group, exclusive, Levels));
        EXPECT_TRUE(requests.back().Granted);
    };
    Platform.Fail(Call::EventCreate, 1, qx::SystemError::Other, true);
    expectGranted(7, false);
    expectGranted(7, false);
    expectGranted(8, true);
    expectGranted(qx::kHeaderGroup, true);
    expectGranted(qx::kOverflowAllocation, true);
    // There are no events to wait on, so a request that would wait fails and leaves nothing behind.
    Counted(Counter::GroupLocks);
    for (const auto& [group, exclusive] : {std::pair{7U, true}, {8U, true}, {8U, false}, {0xFFFFFFFFU, false}}) {
        qx::GroupLockRequest request;
        EXPECT_FALSE(Queue.Lock(request, group, exclusive, Levels)) << group;
        EXPECT_FALSE(request.Granted);
    }
    EXPECT_EQ(Counted(Counter::GroupLocks), 4U);
    EXPECT_EQ(Counted(Counter::GroupLockInitSuspendErrors), 4U);
    expectGranted(7, false);
    for (qx::GroupLockRequest& request : requests) {
        Queue.Unlock(request, Levels);
        EXPECT_FALSE(request.Granted);
    }
    EXPECT_TRUE(Queue.IsEmpty());
    requests.clear();
    expectGranted(7, true);
    Queue.Unlock(requests.back(), Levels);
    EXPECT_EQ(Counted(Counter::GroupLockSuspends), 0U);
    EXPECT_EQ(Counted(Counter::GroupUnlockResumes), 0U);
    EXPECT_EQ(Counted(Counter::GroupUnlocks), 7U);
}

// Threads that hold or wait for group locks, known by names of one letter.
class ConcurrentGroupLockQueue : public GroupLockQueue {
  protected:
    // Starts a thread that asks for a lock; returns when the lock is granted or the thread waits.
    void Ask(char name, uint32_t group, bool exclusive) {
        Holder& holder = holders_[name];
        const uint32_t suspends = Suspends();
        holder.Thread = std::thread([&holder, group, exclusive, this] {
            EXPECT_TRUE(Queue.Lock(holder.Request, group, exclusive, Levels));
            holder.Granted = true;
        });
        while (!holder.Granted && Suspends() == suspends) {
            std::this_thread::yield();
        }
    }

    // Gives up the lock of one, and says who has got one by that.
    std::string Release(char name) {
        const std::string before = Granted();
        const uint32_t resumes = qx::theProcessCounters.Value(Counter::GroupUnlockResumes);
        holders_[name].Thread.join();
        Queue.Unlock(holders_[name].Request, Levels);
        holders_.erase(name);
        const uint32_t woken = qx::theProcessCounters.Value(Counter::GroupUnlockResumes) - resumes;
        while (Granted().size() < before.size() - 1 + woken) {
            std::this_thread::yield();
        }
        std::string now = Granted();
        std::erase_if(now, [&](char c) { return before.find(c) != std::string::npos; });
        return now;
    }

    std::string Granted() const {
        std::string granted;
        for (const auto& [name, holder] : holders_) {
            if (holder.Granted) {
                granted += name;
            }
        }
        return granted;
    }

  private:
    struct Holder {
        qx::GroupLockRequest Request;
        std::atomic<bool> Granted{false};
        std::thread Thread;
    };

    static uint32_t Suspends() { return qx::theProcessCounters.Value(Counter::GroupLockSuspends); }

    std::map<char, Holder> holders_;
};

constexpr bool kShared = false;
constexpr bool kExclusive = true;

TEST_F(ConcurrentGroupLockQueue, AWriterWaitsForReadersAndLaterReadersForTheWriter) {
    Ask('a', 7, kShared);
    Ask('b', 7, kShared);
    Ask('W', 7, kExclusive);
    Ask('c', 7, kShared);
    EXPECT_EQ(Granted(), "ab");
    EXPECT_EQ(Release('a'), "");
    EXPECT_EQ(Release('b'), "W");
    EXPECT_EQ(Release('W'), "c");
    EXPECT_EQ(Release('c'), "");
}

TEST_F(ConcurrentGroupLockQueue, AReaderThatIsNotTheFirstWakesNobody) {
    Ask('a', 7, kShared);
    Ask('b', 7, kShared);
    Ask('W', 7, kExclusive);
    EXPECT_EQ(Release('b'), "");
    EXPECT_EQ(Release('a'), "W");
    EXPECT_EQ(Release('W'), "");
}

TEST_F(ConcurrentGroupLockQueue, AfterAWriterComesTheRunOfReadersOrTheNextWriter) {
    Ask('V', 7, kExclusive);
    Ask('W', 7, kExclusive);
    Ask('a', 7, kShared);
    Ask('x', 8, kExclusive);
    Ask('b', 7, kShared);
    Ask('X', 7, kExclusive);
    Ask('c', 7, kShared);
    EXPECT_EQ(Granted(), "Vx") << "another group is not in the way";
    EXPECT_EQ(Release('V'), "W");
    EXPECT_EQ(Release('x'), "");
    EXPECT_EQ(Release('W'), "ab");
    EXPECT_EQ(Release('a'), "");
    EXPECT_EQ(Release('b'), "X");
    EXPECT_EQ(Release('X'), "c");
    EXPECT_EQ(Release('c'), "");
}

// Random locks of many threads; every group knows who is inside.
TEST_F(ConcurrentGroupLockQueue, ReadersAndWritersNeverMeet) {
    constexpr uint32_t kGroups[] = {0, 1, 2, 0xFFFFFFFF};
    struct Group {
        std::atomic<int> Readers{0};
        std::atomic<int> Writers{0};
        uint64_t Value = 0;  // plain: read by readers, changed by writers
    };
    std::array<Group, std::size(kGroups)> groups;
    std::atomic<uint64_t> written{0};
    const uint64_t seed = TestSeed();
    std::vector<std::thread> threads;
    for (uint64_t t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937_64 random(seed + t);
            for (int i = 0; i < 3000; ++i) {
                // Two groups at a time, in increasing order.
                const size_t first = random() % groups.size();
                const size_t second = first + 1 + random() % groups.size();
                std::vector<std::pair<size_t, bool>> wanted{{first, random() % 3 == 0}};
                if (second < groups.size()) {
                    wanted.emplace_back(second, random() % 3 == 0);
                }
                std::deque<qx::GroupLockRequest> requests;
                for (const auto& [index, exclusive] : wanted) {
                    EXPECT_TRUE(Queue.Lock(requests.emplace_back(), kGroups[index], exclusive, Levels));
                    EXPECT_TRUE(requests.back().Granted);
                    Group& group = groups[index];
                    if (exclusive) {
                        EXPECT_EQ(group.Writers.fetch_add(1), 0);
                        EXPECT_EQ(group.Readers, 0);
                        ++group.Value;
                        ++written;
                    } else {
                        ++group.Readers;
                        EXPECT_EQ(group.Writers, 0);
                        EXPECT_LE(group.Value, 18'000U * 2);
                    }
                }
                if (random() % 4 == 0) {
                    std::this_thread::yield();
                }
                for (size_t j = wanted.size(); j-- > 0;) {
                    Group& group = groups[wanted[j].first];
                    --(wanted[j].second ? group.Writers : group.Readers);
                    Queue.Unlock(requests[j], Levels);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    uint64_t total = 0;
    for (const Group& group : groups) {
        total += group.Value;
    }
    EXPECT_EQ(total, written);
}

}  // namespace
}  // namespace qx_test
