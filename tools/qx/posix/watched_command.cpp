#include "watched_command.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "messages.h"

namespace qx::tool {

namespace {

constexpr std::array<int, 4> kPassedOn = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

std::atomic<pid_t> program{0};
std::atomic<int> early{0};  // came before there was a program to pass it on to

void PassOn(int signal, siginfo_t* information, void* /*context*/) {
    const int saved = errno;
    const pid_t to = program;
    if (to == 0) {
        early = signal;
    } else if (information->si_code <= 0) {
        kill(to, signal);  // from a process; what comes from the terminal goes to the whole job
    }
    errno = saved;
}

// What the one who started the tool lets it ignore, as with nohup, the program is to ignore too.
void PassSignalsOn() {
    for (const int signal : kPassedOn) {
        struct sigaction action = {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN) {
            action = {};
            action.sa_sigaction = PassOn;
            action.sa_flags = SA_SIGINFO | SA_RESTART;
            sigaction(signal, &action, nullptr);
        }
    }
}

int Start(const std::vector<std::string>& command, pid_t& started) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);  // which only the tool ignores
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &pipe);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    const int error = posix_spawnp(&started, arguments[0], nullptr, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    return error;
}

}  // namespace

int RunWatched(const std::vector<std::string>& command) {
    constexpr int kSignalled = 128;
    constexpr int kNotStarted = 126;
    constexpr int kNotFound = 127;
    PassSignalsOn();
    pid_t started = 0;
    if (const int error = Start(command, started)) {
        Complain(command[0] + ": " + std::strerror(error));
        return error == ENOENT ? kNotFound : kNotStarted;
    }
    program = started;
    if (const int signal = early) {
        kill(started, signal);
    }
    int status = 0;
    while (waitpid(started, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? kSignalled + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace qx::tool
