// Guards the life of an object that calls work inside of: it cannot be closed under them.
#pragma once

#include <atomic>
#include <cstdint>

namespace qx {

class StateGate {
  public:
    // The opener makes the object between BeginOpen and EndOpen. BeginOpen raises 1102 while the object is being opened
    // or closed, 1101 when it is open.
    void BeginOpen();
    void EndOpen();
    void AbortOpen();

    // The closer takes the object apart between BeginClose and EndClose. BeginClose raises 1102 while calls are inside
    // or the object is being opened or closed, 1100 when it is not open.
    void BeginClose();
    void EndClose();

    // A call goes in and comes out; Enter is false (reported as 1100) when the object is not open.
    bool Enter() {
        if ((state_.fetch_add(1, std::memory_order_acquire) & kReady) != 0) {
            return true;
        }
        Leave();
        return false;
    }
    void Leave() { state_.fetch_sub(1, std::memory_order_release); }

  private:
    static constexpr uint32_t kBusy = 0x8000'0000;
    static constexpr uint32_t kReady = 0x4000'0000;

    // One of the two or neither, plus the number of calls that are inside or find out that they may not go in.
    std::atomic<uint32_t> state_{0};
};

}  // namespace qx
