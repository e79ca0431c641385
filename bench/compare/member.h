// What one process of a cell does.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "team.h"

namespace qx::compare {

class Member {
  public:
    // `settings`: the plan's, with the directory in which the cell works.
    Member(const CellPlan& plan, const StoreSettings& settings, Team& team, uint32_t process);

    // From the making of the store to the end. Failures are told to the team.
    void Run() noexcept;

  private:
    void Open();
    void Close();
    void InsertAndReopen();
    void ReadOnceThrough();
    void RunPhase(Phase phase);
    void TakePart(Phase phase, uint32_t thread);
    void Operate(Phase phase, Access& access, uint32_t worker, WorkerResult& result);
    void Walk(Access& access, WorkerResult& result);
    void CheckSample(Phase phase);
    bool InsertingWasCutShort() const;
    Share ShareOf(Phase phase, uint32_t worker) const;

    // Runs `body` for every thread of this process, each in a thread of its own.
    template <class Body>
    void InThreads(Body&& body);

    const CellPlan& plan_;
    const StoreSettings settings_;
    Team& team_;
    const uint32_t process_;
    const bool answers_;  // a floor has no answers to check
    Revision revision_ = Revision::Inserted;
    std::unique_ptr<Store> store_;
    std::vector<std::unique_ptr<Access>> accesses_;
};

}  // namespace qx::compare
