#include "support/standing_call.h"

#include <atomic>

#include "support/test_library.h"

namespace qx_test {

namespace {

enum Phase : uint32_t { kRunning, kStanding, kLetGo };

std::atomic<Phase> phase{kRunning};
thread_local bool toStand = false;

}  // namespace

int32_t StandingCallback(uint32_t operation, uint32_t buffer, uint32_t length, uint32_t* outLength, void** outAddress,
                         StatusRecord* status) {
    if (toStand) {
        toStand = false;
        phase = kStanding;
        phase.notify_all();
        phase.wait(kStanding);
    }
    return TestCallback(operation, buffer, length, outLength, outAddress, status);
}

StandingCall::StandingCall(std::string name, std::function<void()> call) {
    phase = kRunning;
    thread_ = std::thread([name = std::move(name), call = std::move(call)] {
        Buffer(0) = name;
        toStand = true;
        call();
    });
    phase.wait(kRunning);
}

void StandingCall::Finish() {
    if (thread_.joinable()) {
        phase = kLetGo;
        phase.notify_all();
        thread_.join();
    }
}

}  // namespace qx_test
