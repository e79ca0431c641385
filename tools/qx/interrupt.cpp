#include "interrupt.h"

#include <csignal>

namespace qx::tool {

namespace {

volatile std::sig_atomic_t requested = 0;

void Request(int) {
    requested = 1;
}

void Watch(int signal) {
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN) {
        return;  // as when started in the background; the one who did so meant it
    }
    // Not std::signal, with which a waiting read would go on waiting.
    action = {};
    action.sa_handler = Request;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(signal, &action, nullptr);
}

}  // namespace

void WatchForInterrupt() {
    Watch(SIGINT);
    Watch(SIGTERM);
}

bool InterruptRequested() noexcept {
    return requested != 0;
}

}  // namespace qx::tool
