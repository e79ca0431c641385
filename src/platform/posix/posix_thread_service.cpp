#include "platform/posix/posix_thread_service.h"

#include <chrono>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <thread>

namespace qx {

class OsThread {
  public:
    void (*Body)(void*);
    void* Argument;
    pthread_t Thread;
};

namespace {

void* Run(void* thread) {
    const OsThread* self = static_cast<const OsThread*>(thread);
    self->Body(self->Argument);
    return nullptr;
}

}  // namespace

// The thread takes no signals: they belong to the application's own threads.
OsThread* PosixThreadService::Start(void (*body)(void*), void* argument) {
    OsThread* thread = new (std::nothrow) OsThread{body, argument, {}};
    if (thread == nullptr) {
        return nullptr;
    }
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int result = pthread_create(&thread->Thread, nullptr, Run, thread);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (result != 0) {
        delete thread;
        return nullptr;
    }
    return thread;
}

void PosixThreadService::Join(OsThread* thread) {
    pthread_join(thread->Thread, nullptr);
    delete thread;
}

void PosixThreadService::Yield() {
    ::sched_yield();
}

void PosixThreadService::Sleep(uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

uint64_t PosixClockService::MonotonicMilliseconds() {
    const auto sinceStart = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(sinceStart).count());
}

}  // namespace qx
