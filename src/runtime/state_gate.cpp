#include "runtime/state_gate.h"

#include "runtime/status.h"

namespace qx {

void StateGate::BeginOpen() {
    const SpinHold hold(lock_);
    if (busy_) {
        Raise(Code::Busy);
    }
    if (ready_) {
        Raise(Code::AlreadyOpen);
    }
    busy_ = true;
}

void StateGate::EndOpen() {
    const SpinHold hold(lock_);
    ready_ = true;
    busy_ = false;
    users_ = 0;
}

void StateGate::AbortOpen() {
    const SpinHold hold(lock_);
    busy_ = false;
}

void StateGate::BeginClose() {
    const SpinHold hold(lock_);
    if (busy_) {
        Raise(Code::Busy);
    }
    if (!ready_) {
        Raise(Code::NotOpen);
    }
    if (users_ != 0) {
        Raise(Code::Busy);
    }
    busy_ = true;
    ready_ = false;
}

void StateGate::EndClose() {
    const SpinHold hold(lock_);
    busy_ = false;
    ready_ = false;
}

bool StateGate::Enter() {
    const SpinHold hold(lock_);
    if (!ready_) {
        return false;
    }
    ++users_;
    return true;
}

void StateGate::Leave() {
    const SpinHold hold(lock_);
    --users_;
}

}  // namespace qx
