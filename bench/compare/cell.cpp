#include "cell.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "member.h"
#include "team.h"

namespace qx::compare {

namespace {

// A directory that goes with the object, and the files in it.
class OwnDirectory {
  public:
    explicit OwnDirectory(const std::string& parent) : path_(parent + "/compare.XXXXXX") {
        if (::mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no directory can be made in " + parent);
        }
    }
    ~OwnDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    OwnDirectory(const OwnDirectory&) = delete;
    OwnDirectory& operator=(const OwnDirectory&) = delete;

    const std::string& Path() const { return path_; }

  private:
    std::string path_;
};

// Waits for the processes; one that is not heard of any more has failed the team.
void WaitForAll(const std::vector<pid_t>& processes, Team& team) {
    for (size_t ended = 0; ended < processes.size();) {
        int status = 0;
        if (::waitpid(-1, &status, 0) < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw std::runtime_error("the processes of a cell are lost");
        }
        ++ended;
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            team.Fail(WIFSIGNALED(status) ? "ended by signal " + std::to_string(WTERMSIG(status)) : "ended too early");
        }
    }
}

PhaseResult Summarize(const Workers& workers, const std::array<WorkerResult, kMostWorkers>& results,
                      const std::array<FrameWork, kMostWorkers>& work) {
    PhaseResult sum;
    uint64_t start = std::numeric_limits<uint64_t>::max();
    uint64_t end = 0;
    uint64_t cpu = 0;
    for (uint32_t process = 0; process < workers.Processes; ++process) {
        uint64_t cpuOfProcess = 0;
        for (uint32_t thread = 0; thread < workers.Threads; ++thread) {
            const WorkerResult& result = results[process * workers.Threads + thread];
            sum.Operations += result.Operations;
            sum.CutShort = sum.CutShort || result.CutShort;
            start = std::min(start, result.StartNanoseconds);
            end = std::max(end, result.EndNanoseconds);
            cpuOfProcess = std::max(cpuOfProcess, result.ProcessCpuNanoseconds);
        }
        cpu += cpuOfProcess;
        sum.PerOperation.Reads += work[process].Reads;
        sum.PerOperation.Writes += work[process].Writes;
        sum.PerOperation.Locks += work[process].Locks;
    }
    if (sum.Operations > 0) {
        const auto operations = static_cast<double>(sum.Operations);
        sum.WallNanoseconds = static_cast<double>(end - start) / operations;
        sum.CpuNanoseconds = static_cast<double>(cpu) / operations;
        sum.PerOperation.Reads /= operations;
        sum.PerOperation.Writes /= operations;
        sum.PerOperation.Locks /= operations;
    }
    return sum;
}

}  // namespace

CellResult RunCell(const CellPlan& plan) {
    const OwnDirectory directory(plan.Settings.Directory);
    StoreSettings settings = plan.Settings;
    settings.Directory = directory.Path();
    SharedTeam team;
    std::fflush(nullptr);  // or the processes would print again what waits in the buffers
    std::vector<pid_t> processes;
    for (uint32_t process = 0; process < plan.Team.Processes; ++process) {
        const pid_t id = ::fork();
        if (id == 0) {
            Member(plan, settings, *team, process).Run();
            ::_exit(0);
        }
        if (id < 0) {
            team->Fail("no process can be started");
            break;
        }
        processes.push_back(id);
    }
    WaitForAll(processes, *team);
    CellResult result;
    if (team->HasFailed()) {
        result.Error = team->Words();
        return result;
    }
    for (size_t phase = 0; phase < kPhaseCount; ++phase) {
        result.Phases[phase] = Summarize(plan.Team, team->Results[phase], team->Work[phase]);
    }
    result.FileBytes = team->FileBytes;
    result.FrameSize = team->FrameSize;
    return result;
}

}  // namespace qx::compare
