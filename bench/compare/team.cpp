#include "team.h"

#include <chrono>
#include <cstring>
#include <new>
#include <sys/mman.h>
#include <thread>

namespace qx::compare {

void Team::Meeting::Wait(uint32_t members, const Team& team) {
    const uint32_t meeting = held_.load();
    if (arrived_.fetch_add(1) + 1 == members) {
        arrived_.store(0);
        held_.store(meeting + 1);
        return;
    }
    while (held_.load() == meeting) {
        if (team.HasFailed()) {
            throw TeamFailed();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
}

void Team::Fail(std::string_view words) noexcept {
    uint32_t none = 0;
    if (failed_.compare_exchange_strong(none, 1)) {
        const size_t length = std::min(words.size(), words_.size() - 1);
        std::memcpy(words_.data(), words.data(), length);
        words_[length] = '\0';
        failed_.store(kTold);
    }
}

SharedTeam::SharedTeam() {
    void* memory = ::mmap(nullptr, sizeof(Team), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::bad_alloc();
    }
    team_ = new (memory) Team();
}

SharedTeam::~SharedTeam() {
    ::munmap(team_, sizeof(Team));
}

}  // namespace qx::compare
