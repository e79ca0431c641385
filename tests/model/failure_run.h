// A random run in which the operating system fails now and then, and what a file may hold after each failure.
//
// An operation that fails changes its own group at most, and there:
//
//   a read          nothing
//   a new record    it is not there; or it is, if only the header or a flush failed after it
//   same length     a first part of the data is new and the rest old
//   other length    the old record is there, or none, or the new one, and every other record of the group
//   a delete        the record is there or not, and every other record of the group
//   a clear         groups are empty up to one, and from there on as they were
//
// Where the group's later records had to be moved and a frame of them may have been written, the group may be damaged
// as a whole; nothing is known of it then until the file is cleared. The same goes for the free-frame list once it is
// too long for its first frame. Frames may be lost and the header's counts be off; no frame is ever used twice.
#pragma once

#include <cstdint>
#include <optional>
#include <qx.hpp>
#include <set>
#include <string>

#include "model/data_source.h"
#include "model/model.h"
#include "model/scenario.h"
#include "support/faulty_platform.h"
#include "support/test_library.h"

namespace qx_test {

class FailureRun {
  public:
    FailureRun(const Scenario& scenario, uint64_t seed);
    ~FailureRun();

    // Throws std::runtime_error, with the seed and the number of the operation, for anything not allowed.
    void Run(uint64_t operations);

    // How often what was met; a run in which a kind is missing has tested less than it seems.
    struct Tally {
        uint64_t Failures = 0;
        uint64_t DamagedGroups = 0;
        uint64_t DamagedLists = 0;
    };
    const Tally& Met() const { return met_; }

  private:
    enum class Kind { Read, Write, Delete, Clear, Flush, Close };
    static const char* NameOf(Kind kind);
    struct Operation {
        Kind What = Kind::Read;
        std::string Key = {};
        std::string Data = {};
        uint32_t Group = 0;
    };
    struct Fault {
        Call Of = Call::Write;
        qx::SystemError Error = qx::SystemError::Other;
        bool Lasting = false;
        size_t Partial = 0;
    };

    Operation ChooseOperation(bool withFault);
    Fault OrderFault(const Operation& operation);
    void Execute(const Operation& operation);
    void Demand(const Operation& operation);
    void Inject(const Operation& operation);

    void CheckStatus(const Operation& operation, const Fault& fault, const StatusRecord& status);
    void Settle(const Operation& operation, const Fault& fault);
    bool Resolve(const Operation& operation, const DiskImage& disk);
    void ResolveClear(const Fault& fault, const DiskImage& disk);
    bool MayDamage(const Operation& operation, const Fault& fault);
    bool MayDamageList(const Operation& operation, const Fault& fault);
    DiskImage Look();
    void Damage(uint32_t group);
    void Restore();
    void Open();

    [[noreturn]] void Fail(const std::string& what) const;

    const Scenario scenario_;
    const uint64_t seed_;
    uint64_t operation_ = 0;
    std::string doing_;
    std::string history_;
    TestDirectory directory_;
    const std::string path_;
    DataSource source_;
    Model model_;
    Tally met_;

    // Since the file was last cleared.
    bool failed_ = false;         // something has failed: frames may be lost and counts off
    std::set<uint32_t> damaged_;  // groups of which nothing is known
    qx_check::Report before_;     // as the file was before the operation under way

    FaultyPlatform platform_;
    std::optional<qx::Library> library_;
    std::optional<qx::Session> session_;
    std::optional<qx::File> file_;
};

}  // namespace qx_test
