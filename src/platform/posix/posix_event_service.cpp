#include "platform/posix/posix_event_service.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <new>

#include "platform/spin_pause.h"

namespace qx {

class OsEvent {
  public:
    std::mutex Mutex;
    std::condition_variable Changed;
    std::atomic<bool> Signalled{false};  // changed under the mutex
};

OsEvent* PosixEventService::Create() {
    return new (std::nothrow) OsEvent;
}

void PosixEventService::Close(OsEvent* event) {
    delete event;
}

// The notification stays under the mutex: once a waiter has returned, the event may be closed.
void PosixEventService::Signal(OsEvent* event) {
    const std::lock_guard guard(event->Mutex);
    event->Signalled = true;
    event->Changed.notify_all();
}

bool PosixEventService::Reset(OsEvent* event) {
    const std::lock_guard guard(event->Mutex);
    event->Signalled = false;
    return true;
}

// Most waits are for a thread that is in the middle of a few system calls or less: going to sleep and being woken would
// take longer than watching until it is done.
void PosixEventService::Wait(OsEvent* event) {
    constexpr int kLooks = 256;
    for (int look = 0; look < kLooks && !event->Signalled.load(std::memory_order_relaxed); ++look) {
        SpinPause();
    }
    std::unique_lock guard(event->Mutex);
    event->Changed.wait(guard, [event] { return event->Signalled.load(std::memory_order_relaxed); });
}

}  // namespace qx
