// The worker: the one thread that the library adds to a process.
#pragma once

#include "platform/host_service.h"
#include "platform/thread_service.h"
#include "runtime/spin_lock.h"
#include "runtime/wait_event_pool.h"

namespace qx {

// Lives from the first QXInitialize to the last QXTerminate and sleeps on a pooled event while it has nothing to do.
class ResizeWorker {
  public:
    // False when the thread cannot be started.
    bool Start();

    // Lets the worker finish the step that it is doing and ends it. Raises 1015, and the worker goes on, when there is
    // no event to wait for its end.
    void Stop();

  private:
    static void ThreadBody(void* worker);
    void Run();
    bool SleepUntilWoken();

    SpinLock lock_;  // what follows
    bool stopping_ = false;
    bool alive_ = false;
    bool asleep_ = false;
    EventIndex wakeEvent_ = 0;
    EventIndex terminatorEvent_ = 0;

    OsThread* thread_ = nullptr;
    OsModule* module_ = nullptr;  // kept loaded while the thread runs
};

extern ResizeWorker theResizeWorker;

}  // namespace qx
