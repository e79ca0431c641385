#include "concurrent/crew.h"

#include <cstdlib>
#include <iostream>
#include <qx.hpp>
#include <stdexcept>

#include "support/stacks.h"

namespace qx_test {

namespace {

using Clock = std::chrono::steady_clock;

// Far beyond any wait of the library's own, also on a slow machine and under a sanitizer.
constexpr std::chrono::seconds kStandstill{180};

}  // namespace

std::chrono::seconds Crew::Duration() {
    const char* given = std::getenv("CORVANE_SECONDS");
    return std::chrono::seconds(given != nullptr ? std::atoi(given) : 2);
}

void Crew::Member::Fail(const std::string& what) const {
    throw std::runtime_error("seed " + std::to_string(crew_.seed_) + ", " + name_ + " after " +
                             std::to_string(steps_.load()) + " steps, " + step_.load() + ": " + what);
}

void Crew::Member::AwaitShift() {
    constexpr std::chrono::milliseconds kDay{100};
    constexpr std::chrono::milliseconds kShift{25};
    const auto now = Clock::now().time_since_epoch() % kDay;
    if (crew_.inShifts_ && now > kShift) {
        Step("resting");
        std::this_thread::sleep_for(kDay - now);
    }
}

void Crew::Add(std::string name, std::function<void(Member&)> body) {
    members_.emplace_back(*this, std::move(name), seed_ + members_.size()).body_ = std::move(body);
}

void Crew::Run() {
    working_ = members_.size();
    for (Member& member : members_) {
        member.thread_ = std::thread([this, &member] { Work(member); });
    }
    Watch();
    for (Member& member : members_) {
        member.thread_.join();
    }
    if (failure_) {
        std::rethrow_exception(failure_);
    }
}

void Crew::Work(Member& member) {
    std::exception_ptr failure;
    try {
        try {
            member.body_(member);
        } catch (const qx::Error& error) {
            member.Fail(error.what());
        }
    } catch (...) {
        failure = std::current_exception();
        ending_ = true;
    }
    member.body_ = nullptr;  // with whatever it keeps open
    const std::lock_guard guard(mutex_);
    if (failure && !failure_) {
        failure_ = failure;
    }
    --working_;
    changed_.notify_all();
}

void Crew::Watch() {
    const auto end = Clock::now() + Duration();
    auto lastProgress = Clock::now();
    uint64_t steps = 0;
    std::unique_lock guard(mutex_);
    while (working_ > 0) {
        changed_.wait_for(guard, std::chrono::milliseconds(100));
        const auto now = Clock::now();
        if (now >= end) {
            ending_ = true;
        }
        const uint64_t stepsNow = Steps();
        if (stepsNow != steps) {
            steps = stepsNow;
            lastProgress = now;
        } else if (now - lastProgress > kStandstill && working_ > 0) {
            ReportStandstill();
        }
    }
}

uint64_t Crew::Steps() const {
    uint64_t steps = 0;
    for (const Member& member : members_) {
        steps += member.steps_.load(std::memory_order_relaxed);
    }
    return steps;
}

void Crew::ReportStandstill() const {
    std::cerr << "seed " << seed_ << ": no thread has got on for " << kStandstill.count() << " seconds\n";
    for (const Member& member : members_) {
        std::cerr << "  " << member.name_ << " after " << member.steps_ << " steps: " << member.step_ << '\n';
    }
    PrintAllStacks();
    std::abort();
}

}  // namespace qx_test
