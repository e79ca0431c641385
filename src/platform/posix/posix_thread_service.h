#pragma once

#include "platform/clock_service.h"
#include "platform/thread_service.h"

namespace qx {

class PosixThreadService final : public ThreadService {
  public:
    OsThread* Start(void (*body)(void*), void* argument) override;
    void Join(OsThread* thread) override;
    void Yield() override;
    void Sleep(uint32_t milliseconds) override;
};

class PosixClockService final : public ClockService {
  public:
    uint64_t MonotonicMilliseconds() override;
};

}  // namespace qx
