#include "runtime/wait_event_pool.h"

#include <thread>
#include <vector>

#include "support/process_set_up.h"

namespace qx_test {
namespace {

using qx::EventIndex;
using qx::theWaitEvents;

class WaitEventPool : public ProcessSetUp {
  protected:
    static std::vector<EventIndex> Take(size_t count) {
        std::vector<EventIndex> taken;
        while (taken.size() < count) {
            const auto event = theWaitEvents.Take();
            EXPECT_TRUE(event.has_value());
            taken.push_back(event.value_or(0));
        }
        return taken;
    }

    static void GiveBack(const std::vector<EventIndex>& events) {
        for (const EventIndex event : events) {
            theWaitEvents.GiveBack(event);
        }
    }
};

TEST_F(WaitEventPool, ASignalOfTheLastUserIsForgotten) {
    const EventIndex event = Take(1).front();
    theWaitEvents.Signal(event);
    theWaitEvents.Wait(event);
    EXPECT_EQ(theWaitEvents.TakenCount(), 0U) << "waiting gives the event back";
    const EventIndex again = Take(1).front();
    ASSERT_EQ(again, event);
    bool signalled = false;
    std::thread signaller([&] {
        signalled = true;
        theWaitEvents.Signal(again);
    });
    theWaitEvents.Wait(again);
    EXPECT_TRUE(signalled);
    signaller.join();
}

TEST_F(WaitEventPool, WithoutResourcesThereIsNoEventAndThePoolIsAsItWas) {
    const std::vector<EventIndex> events = Take(16);
    for (const Call call : {Call::HeapAllocate, Call::EventCreate, Call::EventReset}) {
        Platform.Fail(call, 1);
        EXPECT_FALSE(theWaitEvents.Take().has_value()) << NameOf(call);
        EXPECT_TRUE(Platform.Delivered()) << NameOf(call);
        EXPECT_EQ(theWaitEvents.TakenCount(), 16U) << NameOf(call);
    }
    Platform.Clear();
    GiveBack(Take(20));
    GiveBack(events);
    EXPECT_EQ(Platform.Held.Events, 36);
}

class ConcurrentWaitEventPool : public WaitEventPool {};

// The entries move while others look their events up.
TEST_F(ConcurrentWaitEventPool, GrowsWhileEventsAreInUse) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            std::vector<EventIndex> taken;
            for (int i = 0; i < 60; ++i) {
                taken.push_back(Take(1).front());
                theWaitEvents.Signal(taken[taken.size() / 2]);
            }
            for (size_t i = 0; i < taken.size(); ++i) {
                theWaitEvents.Signal(taken[i]);
                theWaitEvents.Wait(taken[i]);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_LE(theWaitEvents.Capacity(), 240U);
}

}  // namespace
}  // namespace qx_test
