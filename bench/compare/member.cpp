#include "member.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <thread>

namespace qx::compare {

namespace {

uint64_t Nanoseconds(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

void Expect(bool right, const char* words) {
    if (!right) {
        throw std::runtime_error(words);
    }
}

// How many operations are done between two looks at the clock: some tens of microseconds' worth.
uint64_t OperationsPerLook(const Load& load) {
    return std::clamp<uint64_t>(20'000 / load.DataBytes, 1, 64);
}

FrameWork Difference(const FrameWork& from, const FrameWork& to) {
    return {to.Reads - from.Reads, to.Writes - from.Writes, to.Locks - from.Locks};
}

}  // namespace

Member::Member(const CellPlan& plan, const StoreSettings& settings, Team& team, uint32_t process)
    : plan_(plan), settings_(settings), team_(team), process_(process), answers_(plan.Kind->Imitates.empty()) {}

void Member::Run() noexcept {
    try {
        if (process_ == 0) {
            StoreSettings creating = settings_;
            creating.Create = true;
            plan_.Kind->Open(creating);
        }
        team_.OfProcesses.Wait(plan_.Team.Processes, team_);
        Open();
        InsertAndReopen();
        if (!InsertingWasCutShort()) {
            ReadOnceThrough();
            for (size_t index = IndexOf(Phase::Insert) + 1; index < kPhaseCount; ++index) {
                if (plan_.Wanted[index]) {
                    RunPhase(static_cast<Phase>(index));
                }
            }
        }
        Close();
    } catch (const TeamFailed&) {
    } catch (const std::exception& failure) {
        team_.Fail(failure.what());
    } catch (...) {
        team_.Fail("failed in an unknown way");
    }
}

void Member::Open() {
    store_ = plan_.Kind->Open(settings_);
    team_.FrameSize = store_->FrameSize();
    for (uint32_t thread = 0; thread < plan_.Team.Threads; ++thread) {
        accesses_.push_back(store_->Connect());
    }
}

void Member::Close() {
    accesses_.clear();
    store_.reset();
}

// The files are measured while nobody has them open.
void Member::InsertAndReopen() {
    RunPhase(Phase::Insert);
    Close();
    team_.OfProcesses.Wait(plan_.Team.Processes, team_);
    if (process_ == 0) {
        team_.FileBytes = SizeOnDisk(settings_.Directory);
    }
    team_.OfProcesses.Wait(plan_.Team.Processes, team_);
    Open();
}

bool Member::InsertingWasCutShort() const {
    return std::ranges::any_of(team_.Results[IndexOf(Phase::Insert)], &WorkerResult::CutShort);
}

Share Member::ShareOf(Phase phase, uint32_t worker) const {
    return {settings_.Records, phase, worker, plan_.Team.Total(), plan_.Seed};
}

template <class Body>
void Member::InThreads(Body&& body) {
    const auto guarded = [&](uint32_t thread) noexcept {
        try {
            body(thread);
        } catch (const TeamFailed&) {
        } catch (const std::exception& failure) {
            team_.Fail(failure.what());
        } catch (...) {
            team_.Fail("failed in an unknown way");
        }
    };
    std::vector<std::thread> threads;
    for (uint32_t thread = 1; thread < plan_.Team.Threads; ++thread) {
        threads.emplace_back(guarded, thread);
    }
    guarded(0);
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (team_.HasFailed()) {
        throw TeamFailed();
    }
}

// Brings the files into the memory of this process, as far as the store keeps them there.
void Member::ReadOnceThrough() {
    if (!answers_) {
        return;
    }
    InThreads([&](uint32_t thread) {
        const Share share = ShareOf(Phase::Insert, process_ * plan_.Team.Threads + thread);
        std::string into;
        for (uint64_t index = 0; index < share.Size(); ++index) {
            Expect(accesses_[thread]->Get(share.Key(index), into), "a record that was inserted is not found");
        }
    });
}

void Member::RunPhase(Phase phase) {
    if (phase == Phase::Overwrite) {
        revision_ = Revision::Overwritten;
    } else if (phase == Phase::Replace) {
        revision_ = Revision::Replaced;
    }
    store_->Begin(phase);
    const FrameWork before = store_->Work();
    InThreads([&](uint32_t thread) { TakePart(phase, thread); });
    team_.Work[IndexOf(phase)][process_] = Difference(before, store_->Work());
    if (answers_) {
        CheckSample(phase);
    }
    team_.OfProcesses.Wait(plan_.Team.Processes, team_);
}

void Member::TakePart(Phase phase, uint32_t thread) {
    const uint32_t worker = process_ * plan_.Team.Threads + thread;
    WorkerResult& result = team_.Results[IndexOf(phase)][worker];
    if (phase == Phase::Walk) {
        Walk(*accesses_[thread], result);
    } else {
        Operate(phase, *accesses_[thread], worker, result);
    }
}

void Member::Operate(Phase phase, Access& access, uint32_t worker, WorkerResult& result) {
    const Share share = ShareOf(phase, worker);
    RecordData data(settings_.Records);
    std::string into;
    into.reserve(2 * size_t{settings_.Records.DataBytes});
    const auto operate = [&](uint64_t index) {
        const std::string_view key = share.Key(index);
        switch (phase) {
            case Phase::Read:
                return access.Get(key, into) && (!answers_ || data.Agrees(into, share.Number(index), revision_));
            case Phase::Miss:
                return !access.Get(key, into) || !answers_;
            case Phase::Delete:
                return access.Delete(key);
            default:
                access.Put(key, data.Of(share.Number(index), revision_));
                return true;
        }
    };
    const uint64_t perLook = OperationsPerLook(settings_.Records);
    const auto limit = static_cast<uint64_t>(plan_.LimitSeconds[IndexOf(phase)] * 1e9);

    team_.OfWorkers.Wait(plan_.Team.Total(), team_);
    result.StartNanoseconds = Nanoseconds(CLOCK_MONOTONIC);
    const uint64_t cpuAtStart = Nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
    uint64_t index = 0;
    while (index < share.Size() && !result.CutShort) {
        const uint64_t end = std::min(share.Size(), index + perLook);
        for (; index < end; ++index) {
            Expect(operate(index), "an operation has the wrong outcome");
        }
        result.CutShort = index < share.Size() && Nanoseconds(CLOCK_MONOTONIC) - result.StartNanoseconds > limit;
    }
    result.EndNanoseconds = Nanoseconds(CLOCK_MONOTONIC);
    result.ProcessCpuNanoseconds = Nanoseconds(CLOCK_PROCESS_CPUTIME_ID) - cpuAtStart;
    result.Operations = index;
}

void Member::Walk(Access& access, WorkerResult& result) {
    team_.OfWorkers.Wait(plan_.Team.Total(), team_);
    result.StartNanoseconds = Nanoseconds(CLOCK_MONOTONIC);
    const uint64_t cpuAtStart = Nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
    const WalkTotals totals = access.Walk();
    result.EndNanoseconds = Nanoseconds(CLOCK_MONOTONIC);
    result.ProcessCpuNanoseconds = Nanoseconds(CLOCK_PROCESS_CPUTIME_ID) - cpuAtStart;
    result.Operations = totals.Keys;
    Expect(totals.Keys == settings_.Records.Records && totals.KeyBytes == totals.Keys * kKeyBytes,
           "the walk did not come past every key once");
}

// Part of what the phase should have left behind; of a phase that was cut short, what it had come to.
void Member::CheckSample(Phase phase) {
    constexpr uint64_t kSample = 1000;
    const uint32_t worker = process_ * plan_.Team.Threads;
    const Share share = ShareOf(phase, worker);
    const uint64_t done = std::min(share.Size(), team_.Results[IndexOf(phase)][worker].Operations);
    const RecordData data(settings_.Records);
    std::string into;
    for (uint64_t index = 0; index < done; index += std::max<uint64_t>(1, done / kSample)) {
        const bool found = accesses_[0]->Get(share.Key(index), into);
        if (phase == Phase::Miss || phase == Phase::Delete) {
            Expect(!found, "a record is found that should not be there");
        } else {
            Expect(found && data.Agrees(into, share.Number(index), revision_), "a record is not as it was written");
        }
    }
}

}  // namespace qx::compare
