#include "support/stacks.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <execinfo.h>
#include <filesystem>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace qx_test {

namespace {

std::atomic<bool> printed;

void PrintOwnStack(int) {
    void* frames[64];
    backtrace_symbols_fd(frames, backtrace(frames, static_cast<int>(std::size(frames))), STDERR_FILENO);
    printed = true;
}

}  // namespace

void PrintAllStacks() {
    void* unused[1];
    backtrace(unused, 1);  // its first call takes memory, which a signal handler must not
    struct sigaction action {};
    action.sa_handler = PrintOwnStack;
    sigaction(SIGUSR2, &action, nullptr);
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        const std::string thread = entry.path().filename().string();
        std::fprintf(stderr, "thread %s (addr2line -Cfe tells what the addresses are)\n", thread.c_str());
        printed = false;
        syscall(SYS_tgkill, getpid(), std::stoi(thread), SIGUSR2);
        for (int i = 0; i < 1000 && !printed; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
}

}  // namespace qx_test
