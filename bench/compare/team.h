// What the processes of a cell share: places to meet, and their results.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string_view>

#include "cell.h"

namespace qx::compare {

// What one worker has done in a phase. Times are of the monotonic clock.
struct WorkerResult {
    uint64_t Operations = 0;
    uint64_t StartNanoseconds = 0;
    uint64_t EndNanoseconds = 0;
    uint64_t ProcessCpuNanoseconds = 0;  // of all threads of its process meanwhile
    bool CutShort = false;
};

// Thrown out of a meeting to which somebody will not come.
struct TeamFailed {};

// Lies in memory that all processes of a cell map; zeros are its beginning.
class Team {
  public:
    // Waits until `members` have come. Throws TeamFailed when one of the team has failed.
    class Meeting {
      public:
        void Wait(uint32_t members, const Team& team);

      private:
        std::atomic<uint32_t> arrived_;
        std::atomic<uint32_t> held_;
    };

    // The first failure is kept.
    void Fail(std::string_view words) noexcept;
    bool HasFailed() const { return failed_.load() == kTold; }
    std::string_view Words() const { return words_.data(); }

    Meeting OfProcesses;
    Meeting OfWorkers;
    ForEachPhase<std::array<WorkerResult, kMostWorkers>> Results;
    ForEachPhase<std::array<FrameWork, kMostWorkers>> Work;  // of each process
    std::atomic<uint64_t> FileBytes;
    std::atomic<uint32_t> FrameSize;

  private:
    static constexpr uint32_t kTold = 2;

    std::atomic<uint32_t> failed_;
    std::array<char, 256> words_;
};

// A team in shared memory.
class SharedTeam {
  public:
    SharedTeam();
    ~SharedTeam();
    SharedTeam(const SharedTeam&) = delete;
    SharedTeam& operator=(const SharedTeam&) = delete;

    Team& operator*() { return *team_; }
    Team* operator->() { return team_; }

  private:
    Team* team_;
};

}  // namespace qx::compare
