#include "records/resize_worker.h"

#include <optional>

#include "platform/platform.h"
#include "runtime/status.h"

namespace qx {

constinit ResizeWorker theResizeWorker;

bool ResizeWorker::Start() {
    stopping_ = false;
    asleep_ = false;
    alive_ = true;
    module_ = thePlatform.Host->PinModule();
    if (module_ == nullptr) {
        return false;
    }
    thread_ = thePlatform.Threads->Start(ThreadBody, this);
    if (thread_ == nullptr) {
        thePlatform.Host->UnpinModule(module_);
        return false;
    }
    return true;
}

void ResizeWorker::Stop() {
    lock_.Acquire();
    if (alive_) {
        const std::optional<EventIndex> event = theWaitEvents.Take();
        if (!event) {
            lock_.Release();
            Raise(Code::NoMemory);
        }
        terminatorEvent_ = *event;
        stopping_ = true;
        if (asleep_) {
            asleep_ = false;
            theWaitEvents.Signal(wakeEvent_);
        }
        lock_.Release();
        theWaitEvents.Wait(terminatorEvent_);
    } else {
        lock_.Release();
    }
    thePlatform.Threads->Join(thread_);
    thePlatform.Host->UnpinModule(module_);
}

void ResizeWorker::ThreadBody(void* worker) {
    static_cast<ResizeWorker*>(worker)->Run();
}

// Ends when it is told to, or when there is no event to sleep on.
void ResizeWorker::Run() {
    lock_.Acquire();
    while (!stopping_) {
        if (!SleepUntilWoken()) {
            alive_ = false;
            lock_.Release();
            return;
        }
    }
    lock_.Release();
    theWaitEvents.Signal(terminatorEvent_);
}

// Under the lock, which is given up while asleep.
bool ResizeWorker::SleepUntilWoken() {
    const std::optional<EventIndex> event = theWaitEvents.Take();
    if (!event) {
        return false;
    }
    wakeEvent_ = *event;
    asleep_ = true;
    lock_.Release();
    theWaitEvents.Wait(*event);
    lock_.Acquire();
    return true;
}

}  // namespace qx
