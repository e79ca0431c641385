#include "runtime/state_gate.h"

#include "runtime/status.h"

namespace qx {

void StateGate::BeginOpen() {
    uint32_t state = state_.load(std::memory_order_relaxed);
    do {
        if ((state & kBusy) != 0) {
            Raise(Code::Busy);
        }
        if ((state & kReady) != 0) {
            Raise(Code::AlreadyOpen);
        }
    } while (!state_.compare_exchange_weak(state, state + kBusy, std::memory_order_acquire));
}

void StateGate::EndOpen() {
    state_.fetch_add(kReady - kBusy, std::memory_order_release);
}

void StateGate::AbortOpen() {
    state_.fetch_sub(kBusy, std::memory_order_release);
}

// While the object is open every call counted is inside.
void StateGate::BeginClose() {
    uint32_t state = state_.load(std::memory_order_relaxed);
    do {
        if ((state & kBusy) != 0) {
            Raise(Code::Busy);
        }
        if ((state & kReady) == 0) {
            Raise(Code::NotOpen);
        }
        if (state != kReady) {
            Raise(Code::Busy);
        }
    } while (!state_.compare_exchange_weak(state, kBusy, std::memory_order_acquire));
}

void StateGate::EndClose() {
    state_.fetch_sub(kBusy, std::memory_order_release);
}

}  // namespace qx
