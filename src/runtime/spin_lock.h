// The innermost lock: held for a few stores, never across a wait or a call to the system.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/platform.h"

namespace qx {

// Not re-entrant; remembers no owner. A waiting thread gives its turn away after each failed attempt.
class SpinLock {
  public:
    void Acquire() {
        while (word_.exchange(1, std::memory_order_acquire) != 0) {
            thePlatform.Threads->Yield();
        }
    }

    void Release() { word_.store(0, std::memory_order_release); }

  private:
    std::atomic<uint32_t> word_{0};
};

class SpinHold {
  public:
    explicit SpinHold(SpinLock& lock) : lock_(lock) { lock_.Acquire(); }
    ~SpinHold() { lock_.Release(); }
    SpinHold(const SpinHold&) = delete;
    SpinHold& operator=(const SpinHold&) = delete;

  private:
    SpinLock& lock_;
};

}  // namespace qx
