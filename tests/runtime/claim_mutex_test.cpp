#include "runtime/claim_mutex.h"

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

#include "support/process_set_up.h"

namespace qx_test {
namespace {

using Node = qx::ClaimMutex::Node;

class ClaimMutex : public ProcessSetUp {};

TEST_F(ClaimMutex, AFreeMutexIsTakenAndAnOwnedOneIsNot) {
    qx::ClaimMutex mutex;
    Node owner;
    Node other;
    EXPECT_TRUE(mutex.Claim(owner));
    EXPECT_FALSE(mutex.TryClaim(other));
    EXPECT_FALSE(qx::OptionalClaimHold::Try(mutex));
    mutex.Release(owner);
    EXPECT_TRUE(mutex.TryClaim(other));
    mutex.Release(other);
    {
        const auto hold = qx::OptionalClaimHold::Try(mutex);
        EXPECT_TRUE(hold);
        EXPECT_FALSE(mutex.TryClaim(other));
    }
    {
        qx::ClaimHold hold(mutex);
        EXPECT_FALSE(mutex.TryClaim(other));
        hold.Release();
        EXPECT_TRUE(mutex.TryClaim(other));
    }
    mutex.Release(other);
    EXPECT_EQ(mutex.Claims(), 5U) << "claims that were refused are not counted";
    EXPECT_EQ(mutex.Releases(), 5U);
    EXPECT_EQ(mutex.Suspends(), 0U);
    EXPECT_EQ(mutex.Resumes(), 0U);
    EXPECT_EQ(Platform.Count(Call::EventCreate), 0U);
}

TEST_F(ClaimMutex, WithoutAnEventAClaimJoinsNoQueue) {
    qx::ClaimMutex mutex;
    Node owner;
    Node other;
    ASSERT_TRUE(mutex.Claim(owner));
    Platform.Fail(Call::EventCreate, 1, qx::SystemError::Other, true);
    EXPECT_FALSE(mutex.Claim(other));
    EXPECT_EQ(Counted(qx::Counter::ClaimMutexInitSuspendErrors), 1U);
    EXPECT_EQ(Raised([&] { qx::ClaimHold hold(mutex); }), (Status{1028, 0, 0}));
    EXPECT_FALSE(qx::OptionalClaimHold::Claim(mutex));
    EXPECT_EQ(Counted(qx::Counter::ClaimMutexInitSuspendErrors), 2U);
    EXPECT_EQ(mutex.Suspends(), 0U);
    mutex.Release(owner);
    EXPECT_EQ(mutex.Resumes(), 0U);
    EXPECT_TRUE(mutex.Claim(other)) << "a free mutex needs no event";
    mutex.Release(other);
}

class ConcurrentClaimMutex : public ClaimMutex {};

TEST_F(ConcurrentClaimMutex, ClaimantsFollowInTheOrderOfTheirArrival) {
    qx::ClaimMutex mutex;
    Node owner;
    ASSERT_TRUE(mutex.Claim(owner));
    std::vector<uint32_t> order;  // under the mutex
    std::vector<std::thread> claimants;
    for (uint32_t i = 0; i < 17; ++i) {
        claimants.emplace_back([&, i] {
            if (i % 2 == 0) {
                const qx::ClaimHold hold(mutex);
                order.push_back(i);
            } else {
                const auto hold = qx::OptionalClaimHold::Claim(mutex);
                EXPECT_TRUE(hold);
                order.push_back(i);
            }
        });
        while (mutex.Suspends() != i + 1) {
            std::this_thread::yield();
        }
    }
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(qx::theWaitEvents.Capacity(), 32U);
    mutex.Release(owner);
    for (std::thread& claimant : claimants) {
        claimant.join();
    }
    ASSERT_EQ(order.size(), 17U);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_EQ(mutex.Claims(), 18U);
    EXPECT_EQ(mutex.Releases(), 18U);
    EXPECT_EQ(mutex.Suspends(), 17U);
    EXPECT_EQ(mutex.Resumes(), 17U);
}

// Each round makes a mutex that its last owner ends at once: nobody may touch it after that.
TEST_F(ConcurrentClaimMutex, OneOwnerAtATime) {
    for (int round = 0; round < 50; ++round) {
        auto mutex = std::make_unique<qx::ClaimMutex>();
        uint32_t total = 0;  // under the mutex
        std::atomic<uint32_t> left{4};
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < 100; ++i) {
                    if (i % 2 == 0) {
                        const auto tried = qx::OptionalClaimHold::Try(*mutex);
                        if (tried) {
                            ++total;
                            continue;
                        }
                    }
                    const auto hold = qx::OptionalClaimHold::Claim(*mutex);
                    EXPECT_TRUE(hold);
                    ++total;
                    std::this_thread::yield();
                }
                if (--left == 0) {
                    mutex.reset();
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(total, 400U);
    }
}

TEST_F(ConcurrentClaimMutex, SpinLockUnderContention) {
    qx::SpinLock lock;
    uint64_t total = 0;  // under the lock
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20'000; ++i) {
                const qx::SpinHold hold(lock);
                ++total;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(total, 80'000U);
}

}  // namespace
}  // namespace qx_test
