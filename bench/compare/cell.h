// One cell of the comparison: a store, a load, a way of sizing and a number of workers, taken through the phases.
#pragma once

#include <cstdint>
#include <string>

#include "phase.h"
#include "stores.h"

namespace qx::compare {

struct Workers {
    uint32_t Processes = 1;
    uint32_t Threads = 1;  // of each process

    uint32_t Total() const { return Processes * Threads; }
};

inline constexpr uint32_t kMostWorkers = 16;

struct CellPlan {
    const StoreKind* Kind = nullptr;
    StoreSettings Settings;  // Directory is that under which the cell makes its own
    Workers Team;
    ForEachPhase<bool> Wanted{};          // inserting is always done
    ForEachPhase<double> LimitSeconds{};  // a phase that has taken longer is cut short
    uint64_t Seed = 0;
};

struct PhaseResult {
    uint64_t Operations = 0;     // of all workers; keys when walking. 0: the phase was not measured
    bool CutShort = false;       // the time was up before all operations were done
    double WallNanoseconds = 0;  // of an operation: from the start of the first worker to the end of the last
    double CpuNanoseconds = 0;   // of an operation: of all processes and all their threads
    FrameWork PerOperation;
};

struct CellResult {
    ForEachPhase<PhaseResult> Phases;
    uint64_t FileBytes = 0;  // after inserting, with the store closed
    uint32_t FrameSize = 0;  // of a store that a floor imitates
    std::string Error;       // empty if all went well
};

// Does the work in processes of its own, so that stores cannot disturb each other. After inserting the store is closed,
// opened again and read once through, and then the other phases follow in order. What the store answers is checked.
CellResult RunCell(const CellPlan& plan);

}  // namespace qx::compare
