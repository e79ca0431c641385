// The worker: the one thread that the library adds to a process. It changes the number of groups of the files on the
// resize queue, one step at a time.
#pragma once

#include "platform/host_service.h"
#include "platform/thread_service.h"

namespace qx {

// Lives from the first QXInitialize to the last QXTerminate and sleeps while the queue is empty.
class ResizeWorker {
  public:
    // False when the thread cannot be started.
    bool Start();

    // Lets the worker finish the step that it is doing and ends it. Raises 1015, and the worker goes on, when there is
    // no event to wait for its end.
    void Stop();

  private:
    OsThread* thread_ = nullptr;
    OsModule* module_ = nullptr;  // kept loaded while the thread runs
};

extern ResizeWorker theResizeWorker;

}  // namespace qx
