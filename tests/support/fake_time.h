// Time that passes only in sleeps, so that time limits can be tested without waiting for them.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "platform/platform.h"

namespace qx_test {

// In force from construction to destruction; if a FaultyPlatform is used too, one must lie within the other's life.
class FakeTime {
  public:
    FakeTime();
    ~FakeTime();
    FakeTime(const FakeTime&) = delete;
    FakeTime& operator=(const FakeTime&) = delete;

    // Milliseconds since construction.
    uint64_t Elapsed() const { return elapsed_; }
    uint32_t Sleeps() const { return sleeps_; }

    void Sleep(uint32_t milliseconds);

    // Runs inside every sleep, once its time has passed.
    std::function<void()> DuringSleep;

  private:
    class Clock;
    class Threads;

    const qx::Platform real_;
    std::unique_ptr<Clock> clock_;
    std::unique_ptr<Threads> threads_;
    std::atomic<uint64_t> elapsed_{0};
    std::atomic<uint32_t> sleeps_{0};
};

}  // namespace qx_test
