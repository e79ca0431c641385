// Threads that work at the same time, watched: when none of them gets on any more, the process ends and says where each
// one stands.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <list>
#include <mutex>
#include <random>
#include <string>
#include <thread>

namespace qx_test {

class Crew {
  public:
    class Member {
      public:
        Member(Crew& crew, std::string name, uint64_t seed) : crew_(crew), name_(std::move(name)), random_(seed) {}

        // Notes what the thread is about to do.
        void Step(const char* what) {
            step_.store(what, std::memory_order_relaxed);
            steps_.fetch_add(1, std::memory_order_relaxed);
        }

        // False when it is time to end.
        bool GoOn() const { return !crew_.ending_.load(std::memory_order_relaxed); }

        uint32_t Below(uint64_t bound) { return static_cast<uint32_t>(random_() % bound); }
        bool OneIn(uint32_t count) { return Below(count) == 0; }

        // If the crew works in shifts, rests until the next one, together with everybody else. Locks that have to wait
        // until no call is inside the file, for which they look now and then, come into their own then.
        void AwaitShift();

        [[noreturn]] void Fail(const std::string& what) const;

      private:
        friend class Crew;

        Crew& crew_;
        const std::string name_;
        std::function<void(Member&)> body_;
        std::thread thread_;
        std::mt19937_64 random_;
        std::atomic<const char*> step_{"starting"};
        std::atomic<uint64_t> steps_{0};
    };

    explicit Crew(uint64_t seed) : seed_(seed) {}
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;

    void Add(std::string name, std::function<void(Member&)> body);

    void WorkInShifts() { inShifts_ = true; }

    // How long the threads of a test work: CORVANE_SECONDS, or 2.
    static std::chrono::seconds Duration();

    // Lets all work, until they have done their work or are told by GoOn that it is time, and throws the first failure.
    void Run();

    // All of them together.
    uint64_t Steps() const;

  private:
    void Work(Member& member);
    void Watch();
    [[noreturn]] void ReportStandstill() const;

    const uint64_t seed_;
    bool inShifts_ = false;
    std::list<Member> members_;
    std::atomic<bool> ending_{false};
    std::mutex mutex_;  // what follows
    std::condition_variable changed_;
    size_t working_ = 0;
    std::exception_ptr failure_;
};

}  // namespace qx_test
