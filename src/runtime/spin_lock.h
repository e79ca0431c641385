// The innermost lock: held for a few stores, never across a wait or a call to the system.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/platform.h"
#include "platform/spin_pause.h"

namespace qx {

// Not re-entrant; remembers no owner. The owner is nearly always done in a moment, so a waiting thread watches for a
// little before it gives its turn away, which costs more than the wait.
class SpinLock {
  public:
    void Acquire() {
        while (word_.exchange(1, std::memory_order_acquire) != 0) {
            WaitForRelease();
        }
    }

    void Release() { word_.store(0, std::memory_order_release); }

  private:
    void WaitForRelease() const {
        constexpr int kLooks = 64;
        for (int look = 0; look < kLooks; ++look) {
            if (word_.load(std::memory_order_relaxed) == 0) {
                return;
            }
            SpinPause();
        }
        thePlatform.Threads->Yield();
    }

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
