// Files worked on beside a model while the operating system fails now and then: what a file may hold after each
// failure.
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
// as a whole; nothing is known of it then until the file is cleared. The free-frame list may be damaged by a torn write
// and once it is too long for its first frame; the file is then cleared at once. Frames may be lost and the header's
// counts be off; no frame is ever used twice.
#include <algorithm>
#include <gtest/gtest.h>
#include <optional>
#include <set>

#include "model/scenario.h"
#include "support/faulty_platform.h"
#include "support/test_seed.h"

namespace qx_test {
namespace {

// How a record lies in its group. Positions count the data areas of the group's frames one after the other.
class GroupExtent {
  public:
    GroupExtent(const GroupRecords& records, size_t index, uint32_t headerLength, uint32_t frameSize)
        : first_(frameSize - headerLength), other_(frameSize - 14) {
        for (size_t i = 0; i < records.size(); ++i) {
            const size_t bytes = RecordBytes(records[i]);
            total_ += bytes;
            start_ += i < index ? bytes : 0;
            following_ += i > index ? bytes : 0;
        }
    }

    // Overflow frames of the group, its end-of-group mark included.
    size_t OverflowFrames() const { return FrameOf(total_); }
    // Bytes of the records behind it.
    size_t Following() const { return following_; }
    // Room from the record's first byte to the end of its frame.
    size_t Room() const { return first_ + FrameOf(start_) * other_ - start_; }

  private:
    size_t FrameOf(size_t position) const { return position < first_ ? 0 : 1 + (position - first_) / other_; }

    const size_t first_;
    const size_t other_;
    size_t start_ = 0;
    size_t following_ = 0;
    size_t total_ = 0;
};

// Data of which a first part is new and the rest old.
bool IsPartlyOverwritten(const std::string& data, const std::string& before, const std::string& after) {
    if (data.size() != after.size()) {
        return false;
    }
    const auto firstOld = std::mismatch(data.begin(), data.end(), after.begin()).first - data.begin();
    return std::equal(data.begin() + firstOld, data.end(), before.begin() + firstOld, before.end());
}

bool TellsOfFreeList(const qx_check::Report& report) {
    return std::any_of(report.problems.begin(), report.problems.end(), [](const std::string& problem) {
        return problem.find(" list") != std::string::npos || problem.find("free") != std::string::npos ||
               problem.find("HighWater") != std::string::npos || problem.find("EntryCount") != std::string::npos;
    });
}

// What checks allow once something has failed.
qx_check::Options Lenient() {
    qx_check::Options options;
    options.checkFill = false;
    options.allowLeakedFrames = true;
    options.allowCountDrift = true;
    return options;
}

class FailureRun : ModelFile {
  public:
    // How often what was met; a run in which a kind is missing has tested less than it seems.
    struct Tally {
        uint64_t Failures = 0;
        uint64_t DamagedGroups = 0;
        uint64_t DamagedLists = 0;
    };

    FailureRun(const Scenario& scenario, uint64_t seed) : ModelFile(scenario, seed) {
        library_.emplace();
        session_.emplace(*library_);
        MakeFile(*session_);
        file_.emplace(session_->OpenFile(path_));
    }
    ~FailureRun() { platform_.Clear(); }

    // Throws, naming the seed and the operation, for anything not allowed.
    Tally Run(uint64_t operations) {
        try {
            for (operation_ = 1; operation_ <= operations; ++operation_) {
                Turn();
            }
            Restore();
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(error.what() + ("\nafter these failures since the last clear:" + history_));
        }
        return met_;
    }

  private:
    enum class Kind { Read, Write, Delete, Clear, Flush, Close };

    struct Operation {
        Kind What = Kind::Read;
        std::string Key = {};
        std::string Data = {};
        uint32_t Group = 0;

        bool ChangesRecord() const { return What == Kind::Write || What == Kind::Delete; }
    };

    struct Fault {
        Call Of = Call::Write;
        qx::SystemError Error = qx::SystemError::Other;
        bool Lasting = false;
        size_t Partial = 0;
    };

    void Turn() {
        if (!damaged_.empty() && source_.OneIn(30)) {
            Restore();
        }
        const bool withFault = source_.OneIn(4);
        const Operation operation = ChooseOperation(withFault && damaged_.empty());
        doing_.clear();
        if (withFault) {
            Inject(operation);
        } else {
            Demand(operation);
        }
        if (operation.What == Kind::Close) {
            file_.emplace(session_->OpenFile(path_));
        }
    }

    Operation ChooseOperation(bool clearOften) {
        Operation operation;
        operation.Key = source_.OneIn(20) ? source_.StrangeKey() : source_.Key();
        operation.Group = model_.GroupOf(operation.Key);
        const std::string* before = model_.Find(operation.Key);
        const uint32_t choice = source_.Below(200);
        if (choice < 115) {
            operation.What = Kind::Write;
            const bool sameLength = before != nullptr && source_.OneIn(3);
            operation.Data = source_.Data(sameLength ? before->size() : source_.Length());
        } else if (choice < 169) {
            operation.What = Kind::Delete;
        } else if (choice < 174) {
            operation.What = choice < 171 ? Kind::Flush : Kind::Close;
        } else if (choice < 175 && (clearOften || source_.OneIn(5))) {
            operation.What = Kind::Clear;
        }
        if (operation.ChangesRecord() && damaged_.contains(operation.Group)) {
            operation.What = Kind::Read;
        }
        return operation;
    }

    Call ChooseCall(Kind kind) {
        static constexpr Call kOfRead[] = {Call::Read, Call::Read, Call::GetSize};
        static constexpr Call kOfChange[] = {Call::Write, Call::Write, Call::Write,   Call::Write,
                                             Call::Read,  Call::Read,  Call::SetSize, Call::GetSize};
        static constexpr Call kOfClose[] = {Call::Write, Call::Read, Call::Flush};
        const auto oneOf = [this](const auto& calls) { return calls[source_.Below(std::size(calls))]; };
        switch (kind) {
            case Kind::Read:
                return oneOf(kOfRead);
            case Kind::Flush:
                return Call::Flush;
            case Kind::Close:
                return oneOf(kOfClose);
            default:
                return source_.OneIn(20) ? Call::Flush : oneOf(kOfChange);
        }
    }

    Fault OrderFault(Kind kind) {
        Fault fault;
        fault.Of = ChooseCall(kind);
        if (fault.Of == Call::Write) {
            fault.Error = source_.OneIn(2) ? qx::SystemError::VolumeFull : qx::SystemError::Other;
            fault.Lasting = source_.OneIn(6);
        }
        fault.Partial = source_.OneIn(2) ? 0 : source_.Below(scenario_.FrameSize + 1);
        const uint32_t number = 1 + source_.Below(source_.OneIn(4) ? 60 : 4);
        platform_.TransferBeforeFailing(fault.Partial);
        platform_.Fail(fault.Of, number, fault.Error, fault.Lasting);
        doing_ = std::string(", with ") + NameOf(fault.Of) + " number " + std::to_string(number) + " failing" +
                 (fault.Lasting ? " from then on" : "") + " after " + std::to_string(fault.Partial) + " bytes";
        return fault;
    }

    // Does the operation; what it says must agree with the model, which follows. Throws qx::Error.
    void Execute(const Operation& operation) {
        const std::string* due = model_.Find(operation.Key);
        switch (operation.What) {
            case Kind::Read: {
                const std::optional<std::string> record = file_->Read(operation.Key);
                Require(damaged_.contains(operation.Group) ||
                            (due == nullptr ? !record.has_value() : record.has_value() && *record == *due),
                        "a record reads back differently");
                break;
            }
            case Kind::Write:
                file_->Write(operation.Key, operation.Data);
                model_.Put(operation.Key, operation.Data);
                break;
            case Kind::Delete:
                Require(file_->Delete(operation.Key) == (due != nullptr), "a delete has the wrong outcome");
                if (due != nullptr) {
                    model_.Erase(operation.Key);
                }
                break;
            case Kind::Clear:
                file_->Clear();
                model_.Clear();
                failed_ = false;
                damaged_.clear();
                history_.clear();
                break;
            case Kind::Flush:
                session_->Flush();
                break;
            case Kind::Close:
                file_->Close();
                break;
        }
    }

    // Without a fault, only reading what is damaged already may fail.
    void Demand(const Operation& operation) {
        try {
            Execute(operation);
        } catch (const qx::Error& error) {
            if (operation.What != Kind::Read || !damaged_.contains(operation.Group)) {
                Fail("unexpected failure " + std::to_string(error.Code()));
            }
        }
    }

    void Inject(const Operation& operation) {
        before_ = Look();
        const Fault fault = OrderFault(operation.What);
        std::optional<StatusRecord> failure;
        try {
            Execute(operation);
        } catch (const qx::Error& error) {
            failure = {error.Code(), error.Detail1(), error.Detail2()};
        }
        const bool delivered = platform_.Delivered();
        platform_.Clear();
        if (!damaged_.contains(operation.Group)) {
            Require(!delivered || failure, "nothing was told of it");
            Require(delivered || !failure, "an unexpected failure");
            if (failure) {
                CheckStatus(operation, fault, *failure);
            }
        }
        if (failure) {
            static constexpr const char* kNames[] = {"read", "write", "delete", "clear", "flush", "close"};
            history_ += "\n  operation " + std::to_string(operation_) + ", " +
                        kNames[static_cast<size_t>(operation.What)] + " in group " + std::to_string(operation.Group) +
                        doing_ + (before_.Clean() ? "" : ", on a damaged file");
            ++met_.Failures;
            Settle(operation, fault);
        }
    }

    void CheckStatus(const Operation& operation, const Fault& fault, const StatusRecord& status) const {
        uint32_t due = 104;
        if (fault.Of == Call::Read || fault.Of == Call::GetSize) {
            due = 107;
        } else if (fault.Error == qx::SystemError::VolumeFull) {
            due = 103;
        }
        const bool ofRecord = operation.What <= Kind::Delete && fault.Of != Call::Flush;
        if (status.Code != due || status.Detail1 < 1 || status.Detail1 > 2 ||
            (ofRecord && status.Detail2 != operation.Group + 1)) {
            Fail("status " + std::to_string(status.Code) + ", " + std::to_string(status.Detail1) + ", " +
                 std::to_string(status.Detail2));
        }
    }

    // What is not known to be damaged must be right. Returns what is wrong with the rest.
    qx_check::Report Look() {
        qx_check::Options options = failed_ ? Lenient() : qx_check::Options{};
        options.openProcesses = 1;
        const DiskImage disk(path_, options, model_);
        RequireRecords(disk);
        if (!disk.Report().Clean() && damaged_.empty()) {
            Fail("on disk: " + disk.Report().problems.front());
        }
        return disk.Report();
    }

    void RequireRecords(const DiskImage& disk) {
        const uint32_t group = disk.FirstDifference(model_, damaged_);
        if (group != DiskImage::kNone) {
            Fail("the records of group " + std::to_string(group) + " differ on disk" +
                 (disk.Report().Clean() ? "" : "; " + disk.Report().problems.front()));
        }
    }

    // After a failure the file must hold one of the things that it may hold, and the model takes that over.
    void Settle(const Operation& operation, const Fault& fault) {
        if (operation.What == Kind::Flush || operation.What == Kind::Read) {
            Look();
            return;
        }
        failed_ = true;
        const bool mayDamage = MayDamage(operation, fault);
        const bool mayDamageList = MayDamageList(operation, fault);
        const DiskImage disk(path_, Lenient(), model_);
        const bool newProblem = disk.Report().problems != before_.problems;
        if (operation.What == Kind::Clear) {
            ResolveClear(fault, disk);
        } else if (operation.ChangesRecord() && !Resolve(operation, disk)) {
            Require(mayDamage, "the group holds what it may not hold");
            Damage(operation.Group);
        }
        if (newProblem && mayDamage) {
            Damage(operation.Group);
        }
        RequireRecords(disk);
        if (newProblem && mayDamageList && TellsOfFreeList(disk.Report())) {
            ++met_.DamagedLists;
            Restore();
        } else if (newProblem && damaged_.empty()) {
            Fail("on disk: " + disk.Report().problems.front());
        }
    }

    // Whether the group of a failed write or delete holds one of the things that it may hold.
    bool Resolve(const Operation& operation, const DiskImage& disk) {
        GroupRecords& group = model_.Group(operation.Group);
        const GroupRecords& found = disk.Group(operation.Group);
        if (found == group) {
            return true;
        }
        const size_t index = IndexIn(group, operation.Key);
        GroupRecords allowed = group;
        if (IsOverwrite(operation)) {
            if (index >= found.size() || !IsPartlyOverwritten(found[index].data, group[index].data, operation.Data)) {
                return false;
            }
            allowed[index].data = found[index].data;
        } else {
            if (index < group.size()) {
                allowed.erase(allowed.begin() + static_cast<std::ptrdiff_t>(index));
            }
            if (operation.What == Kind::Write && found != allowed) {
                allowed.push_back({operation.Key, operation.Data});
            }
        }
        const bool good = found == allowed;
        if (good) {
            group = allowed;
        }
        return good;
    }

    void ResolveClear(const Fault& fault, const DiskImage& disk) {
        // A group whose first frame was torn may look cleared, or as it was.
        const bool torn = fault.Partial != 0 && !disk.Report().Clean();
        bool cleared = true;
        for (uint32_t i = 0; i < model_.GroupCount(); ++i) {
            if (damaged_.contains(i)) {
                continue;
            }
            const bool isEmpty = disk.Group(i).empty();
            if (cleared && torn && !model_.Group(i).empty()) {
                Damage(i);
            } else if (cleared && isEmpty) {
                model_.Group(i).clear();
            }
            cleared = cleared && isEmpty;
        }
    }

    static size_t IndexIn(const GroupRecords& group, const std::string& key) {
        const auto has = [&key](const qx_check::Record& record) { return record.key == key; };
        return static_cast<size_t>(std::find_if(group.begin(), group.end(), has) - group.begin());
    }

    bool IsOverwrite(const Operation& operation) const {
        const std::string* before = model_.Find(operation.Key);
        return operation.What == Kind::Write && before != nullptr && before->size() == operation.Data.size();
    }

    // Whether a failure may have hit the group while the records behind the changed one were on their way. What is
    // written of the new record itself is cut off again, unless that fails too.
    bool MayDamage(const Operation& operation, const Fault& fault) {
        const GroupRecords& group = model_.Group(operation.Group);
        const size_t index = IndexIn(group, operation.Key);
        if (!operation.ChangesRecord() || IsOverwrite(operation)) {
            return false;
        }
        if (fault.Lasting || index == group.size()) {
            return fault.Lasting;
        }
        const uint32_t headerLength = operation.Group == 0 ? scenario_.HeaderLength : 13;
        const GroupExtent extent(group, index, headerLength, scenario_.FrameSize);
        if (operation.What == Kind::Write) {
            return extent.Following() >= extent.Room();
        }
        const bool oneWrite = extent.Following() + 1 <= extent.Room();
        return !oneWrite || (fault.Partial != 0 && extent.Following() + extent.OverflowFrames() != 0);
    }

    // The list is rewritten in one write, which may be torn, unless it was, or could become, too long for its first
    // frame: moving half of it takes several.
    bool MayDamageList(const Operation& operation, const Fault& fault) {
        const GroupExtent extent(model_.Group(operation.Group), 0, 13, scenario_.FrameSize);
        const uint64_t capacity = ((scenario_.FrameSize - 7) / 4) & ~uint64_t{1};
        return operation.ChangesRecord() && (fault.Partial != 0 || before_.listFrames > 1 ||
                                             before_.freeFrames + extent.OverflowFrames() + 2 >= capacity);
    }

    void Damage(uint32_t group) {
        if (damaged_.insert(group).second) {
            ++met_.DamagedGroups;
            model_.Group(group).clear();
        }
    }

    // A clear makes everything good again, to the last byte.
    void Restore() {
        doing_ = ", clearing without a fault";
        Demand({.What = Kind::Clear});
        Demand({.What = Kind::Close});
        CheckDisk({});
        file_.emplace(session_->OpenFile(path_));
    }

    Tally met_;

    // Since the file was last cleared.
    bool failed_ = false;         // frames may be lost and counts off
    std::set<uint32_t> damaged_;  // groups of which nothing is known
    std::string history_;
    qx_check::Report before_;  // as the file was before the operation under way

    FaultyPlatform platform_;
    std::optional<qx::Library> library_;
    std::optional<qx::Session> session_;
    std::optional<qx::File> file_;
};

// Small enough to be looked at as a whole after every failure, and chains long enough to fail in the middle of.
const Scenario kScenarios[] = {
    {32, 256, 5, 2, 100, 8'000},
    {22, 256, 2, 2, 60, 20'000},
    {26, 1000, 4, 2, 100, 20'000},
    {32, 1024, 3, 2, 60, 50'000},
    {32, 1024, 3, 2, 60, 50'000, "FLUSHALLUPDATES = YES"},
    {26, 4096, 1, 2, 100, 60'000},
};

class FailureTest : public testing::TestWithParam<Scenario> {
  protected:
    static void Run(uint64_t operations) {
        const FailureRun::Tally met = FailureRun(GetParam(), TestSeed()).Run(operations);
        std::cout << met.Failures << " failures, " << met.DamagedGroups << " damaged groups, " << met.DamagedLists
                  << " damaged lists\n";
        EXPECT_GT(met.Failures, operations / 20);
        EXPECT_GT(met.DamagedGroups, 0u);
    }
};
using SlowFailureTest = FailureTest;

TEST_P(FailureTest, LeavesWhatItMayLeave) {
    Run(12'000);
}

TEST_P(SlowFailureTest, LeavesWhatItMayLeave) {
    Run(100'000);
}

INSTANTIATE_TEST_SUITE_P(Files, FailureTest, testing::ValuesIn(kScenarios));
INSTANTIATE_TEST_SUITE_P(Files, SlowFailureTest, testing::ValuesIn(kScenarios));

}  // namespace
}  // namespace qx_test
