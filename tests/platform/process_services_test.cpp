// Memory, events, threads, the host.
#include <cstring>
#include <gtest/gtest.h>
#include <numeric>
#include <sched.h>
#include <set>
#include <signal.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/platform.h"
#include "support/other_process.h"

namespace qx_test {
namespace {

TEST(MemoryService, AHeapTakesItsBlocksWithIt) {
    for (const bool guarded : {false, true}) {
        qx::PrivateHeap* heap = qx::thePlatform.Memory->CreateHeap(guarded);
        ASSERT_NE(heap, nullptr);
        std::vector<void*> blocks;
        for (size_t size = 0; size < 300; ++size) {
            void* block = heap->Allocate(size);
            ASSERT_NE(block, nullptr);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0U);
            std::memset(block, static_cast<int>(size), size);
            blocks.push_back(block);
        }
        EXPECT_EQ(std::set<void*>(blocks.begin(), blocks.end()).size(), blocks.size());
        for (size_t i = 0; i < blocks.size(); i += 2) {
            heap->Free(blocks[i]);
        }
        EXPECT_EQ(heap->BlockCount(), 150U);
        for (size_t i = 1; i < blocks.size(); i += 2) {
            EXPECT_EQ(*static_cast<unsigned char*>(blocks[i]), static_cast<unsigned char>(i));
        }
        for (const size_t tooMuch : {SIZE_MAX, SIZE_MAX - 8}) {
            EXPECT_EQ(heap->Allocate(tooMuch), nullptr);
        }
        EXPECT_EQ(heap->BlockCount(), 150U);
        qx::thePlatform.Memory->DestroyHeap(heap);  // a leak checker sees what it forgets
    }
}

TEST(ConcurrentMemoryService, AGuardedHeapServesSeveralThreads) {
    qx::PrivateHeap* heap = qx::thePlatform.Memory->CreateHeap(true);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([heap] {
            void* kept = nullptr;
            for (int i = 0; i < 5000; ++i) {
                void* next = heap->Allocate(16);
                if (kept != nullptr) {
                    heap->Free(kept);
                }
                kept = next;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(heap->BlockCount(), 4U);
    qx::thePlatform.Memory->DestroyHeap(heap);
}

TEST(ConcurrentEventService, AnEventStaysSignalledUntilItIsReset) {
    qx::EventService& events = *qx::thePlatform.Events;
    qx::OsEvent* go = events.Create();
    qx::OsEvent* never = events.Create();
    ASSERT_NE(go, nullptr);
    std::atomic<int> through{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            events.Wait(go);
            ++through;
        });
    }
    EXPECT_EQ(through, 0);
    events.Signal(never);
    EXPECT_TRUE(events.Reset(never));
    std::thread waiter([&] {
        events.Wait(never);
        EXPECT_EQ(through, 3) << "a reset event is not signalled any more";
    });
    events.Signal(go);
    for (std::thread& thread : threads) {
        thread.join();
    }
    events.Wait(go);
    events.Signal(never);
    waiter.join();
    events.Close(go);
    events.Close(never);
}

TEST(ThreadService, ItsThreadsLeaveSignalsToTheApplication) {
    struct Seen {
        bool Ran = false;
        bool TakesSignals = true;
    } seen;
    qx::OsThread* thread = qx::thePlatform.Threads->Start(
        [](void* argument) {
            sigset_t blocked;
            pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
            *static_cast<Seen*>(argument) = {true, sigismember(&blocked, SIGTERM) == 0};
        },
        &seen);
    ASSERT_NE(thread, nullptr);
    qx::thePlatform.Threads->Join(thread);
    EXPECT_TRUE(seen.Ran);
    EXPECT_FALSE(seen.TakesSignals);
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 0);
}

std::string ComputerName() {
    char name[16];
    std::memset(name, '#', sizeof name);
    const uint32_t length = qx::thePlatform.Host->ComputerName(name);
    return std::string(name, length);
}

std::string Expected(std::string host) {
    host = host.substr(0, host.find('.')).substr(0, 15);
    for (char& c : host) {
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c & ~0x20) : c;
    }
    return host;
}

TEST(HostService, ComputerNameIsTheFirstPartOfTheHostName) {
    char host[256] = {};
    ASSERT_EQ(::gethostname(host, sizeof host - 1), 0);
    EXPECT_EQ(ComputerName(), Expected(host));
    EXPECT_EQ(Expected("db-1.Example.org"), "DB-1");
    EXPECT_EQ(Expected("fifteen-letters-and-more"), "FIFTEEN-LETTERS");

    // Other names need a host name of one's own, which not every test machine grants.
    OtherProcess process([](OtherProcess::Turn&) {
        if (::unshare(CLONE_NEWUTS) != 0) {
            return;
        }
        for (const std::string name : {"db-1.Example.org", "fifteen-letters-and-more", "a", "exactly-15chars.x", ""}) {
            if (::sethostname(name.data(), name.size()) == 0) {
                EXPECT_EQ(ComputerName(), Expected(name)) << name;
            }
        }
    });
    EXPECT_TRUE(process.Finish());
}

}  // namespace
}  // namespace qx_test
