// A call that stays inside the library until it is let go.
#pragma once

#include <cstdint>
#include <functional>
#include <qx.h>
#include <thread>

namespace qx_test {

// The test's callback, which makes a StandingCall stand.
int32_t StandingCallback(uint32_t operation, uint32_t buffer, uint32_t length, uint32_t* outLength, void** outAddress,
                         StatusRecord* status);

class StandingCall {
  public:
    // Runs `call` in a thread of its own. Returns once its first StandingCallback has been reached. The thread's
    // buffers are its own; object number 0 holds `name`.
    StandingCall(std::string name, std::function<void()> call);
    ~StandingCall() { Finish(); }
    StandingCall(const StandingCall&) = delete;
    StandingCall& operator=(const StandingCall&) = delete;

    // Lets it go and returns when it has ended.
    void Finish();

  private:
    std::thread thread_;
};

}  // namespace qx_test
