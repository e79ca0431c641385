// Threads.
#pragma once

#include <cstdint>

namespace qx {

class OsThread;

class ThreadService {
  public:
    virtual ~ThreadService() = default;

    // Starts a thread that runs `body(argument)`; null when the system refuses.
    virtual OsThread* Start(void (*body)(void*), void* argument) = 0;

    // Waits until the thread has ended and forgets it.
    virtual void Join(OsThread* thread) = 0;

    virtual void Yield() = 0;
    virtual void Sleep(uint32_t milliseconds) = 0;
};

}  // namespace qx
