#include "support/other_process.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace qx_test {

namespace {

constexpr char kYourTurn = '.';

bool Send(int pipe) {
    return ::write(pipe, &kYourTurn, 1) == 1;
}

bool Receive(int pipe) {
    char byte = 0;
    return ::read(pipe, &byte, 1) == 1;
}

}  // namespace

void OtherProcess::Turn::HandOver() {
    if (!Send(write_) || !Receive(read_)) {
        ::_exit(EXIT_FAILURE);  // the test is gone
    }
}

OtherProcess::OtherProcess(const std::function<void(Turn& turn)>& body) {
    int toOther[2];
    int toHere[2];
    if (::pipe(toOther) != 0 || ::pipe(toHere) != 0) {
        throw std::runtime_error("no pipes");
    }
    std::fflush(nullptr);
    process_ = ::fork();
    if (process_ < 0) {
        throw std::runtime_error("no second process");
    }
    if (process_ == 0) {
        ::close(toOther[1]);
        ::close(toHere[0]);
        Turn turn;
        turn.read_ = toOther[0];
        turn.write_ = toHere[1];
        body(turn);
        std::fflush(nullptr);
        ::_exit(testing::Test::HasFailure() ? EXIT_FAILURE : EXIT_SUCCESS);
    }
    ::signal(SIGPIPE, SIG_IGN);
    ::close(toOther[0]);
    ::close(toHere[1]);
    here_.read_ = toHere[0];
    here_.write_ = toOther[1];
    Receive(here_.read_);
}

OtherProcess::~OtherProcess() {
    Kill();
    ::close(here_.read_);
    ::close(here_.write_);
}

bool OtherProcess::Continue() {
    return Send(here_.write_) && Receive(here_.read_);
}

void OtherProcess::LetGo() {
    Send(here_.write_);
}

void OtherProcess::Kill() {
    if (process_ > 0) {
        ::kill(process_, SIGKILL);
        Reap();
    }
}

bool OtherProcess::Finish() {
    while (Continue()) {
    }
    Reap();
    return WIFEXITED(status_) && WEXITSTATUS(status_) == EXIT_SUCCESS;
}

void OtherProcess::Reap() {
    if (process_ > 0) {
        ::waitpid(process_, &status_, 0);
        process_ = -1;
    }
}

}  // namespace qx_test
