#include "platform/posix/posix_event_service.h"

#include <condition_variable>
#include <mutex>
#include <new>

namespace qx {

class OsEvent {
  public:
    std::mutex Mutex;
    std::condition_variable Changed;
    bool Signalled = false;
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

void PosixEventService::Wait(OsEvent* event) {
    std::unique_lock guard(event->Mutex);
    event->Changed.wait(guard, [event] { return event->Signalled; });
}

}  // namespace qx
