#include "model/failure_run.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "model/group_extent.h"

namespace qx_test {

namespace {

size_t IndexOf(const GroupRecords& group, const std::string& key) {
    const auto found = std::find_if(group.begin(), group.end(), [&](const auto& record) { return record.key == key; });
    return static_cast<size_t>(found - group.begin());
}

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

}  // namespace

const char* FailureRun::NameOf(Kind kind) {
    static constexpr const char* kNames[] = {"read", "write", "delete", "clear", "flush", "close"};
    return kNames[static_cast<size_t>(kind)];
}

FailureRun::FailureRun(const Scenario& scenario, uint64_t seed)
    : scenario_(scenario),
      seed_(seed),
      path_(directory_.File("MODEL")),
      source_(seed, scenario.FrameSize, scenario.Keys, scenario.Longest),
      model_(scenario.FixedModulo()) {
    WriteWholeFile(directory_.File("MOXPARAM"), scenario.Parameters);
    library_.emplace();
    session_.emplace(*library_);
    MakeScenarioFile(scenario_, path_, *session_, source_, model_);
    Open();
}

FailureRun::~FailureRun() {
    platform_.Clear();
}

void FailureRun::Open() {
    file_.emplace(session_->OpenFile(path_));
}

void FailureRun::Fail(const std::string& what) const {
    std::ostringstream text;
    text << "seed " << seed_ << ", operation " << operation_ << ", " << scenario_ << doing_ << ": " << what
         << "\nafter these failures since the file was cleared:" << history_;
    throw std::runtime_error(text.str());
}

void FailureRun::Run(uint64_t operations) {
    for (operation_ = 1; operation_ <= operations; ++operation_) {
        const bool broken = !damaged_.empty();
        if (broken && source_.OneIn(30)) {
            Restore();
        }
        const bool withFault = source_.OneIn(4);
        const Operation operation = ChooseOperation(withFault && !broken);
        doing_.clear();
        if (withFault) {
            Inject(operation);
        } else {
            Demand(operation);
        }
    }
    Restore();
}

FailureRun::Operation FailureRun::ChooseOperation(bool withFault) {
    Operation operation;
    operation.Key = source_.OneIn(20) ? source_.StrangeKey() : source_.Key();
    operation.Group = model_.GroupOf(operation.Key);
    const std::string* before = model_.Find(operation.Key);
    const uint32_t choice = source_.Below(200);
    if (choice < 25) {
        operation.What = Kind::Read;
    } else if (choice < 140) {
        operation.What = Kind::Write;
        const bool sameLength = before != nullptr && source_.OneIn(3);
        operation.Data = source_.Data(sameLength ? before->size() : source_.Length());
    } else if (choice < 194) {
        operation.What = Kind::Delete;
    } else if (choice < 199) {
        operation.What = choice < 196 ? Kind::Flush : Kind::Close;
    } else {
        operation.What = withFault || source_.OneIn(5) ? Kind::Clear : Kind::Read;
    }
    const bool changes = operation.What == Kind::Write || operation.What == Kind::Delete;
    if (changes && damaged_.contains(operation.Group)) {
        operation.What = Kind::Read;
    }
    return operation;
}

FailureRun::Fault FailureRun::OrderFault(const Operation& operation) {
    static constexpr Call kOfRead[] = {Call::Read, Call::Read, Call::GetSize};
    static constexpr Call kOfChange[] = {Call::Write, Call::Write, Call::Write,   Call::Write,
                                         Call::Read,  Call::Read,  Call::SetSize, Call::GetSize};
    static constexpr Call kOfClose[] = {Call::Write, Call::Read, Call::Flush};
    Fault fault;
    switch (operation.What) {
        case Kind::Read:
            fault.Of = kOfRead[source_.Below(std::size(kOfRead))];
            break;
        case Kind::Write:
        case Kind::Delete:
        case Kind::Clear:
            fault.Of = source_.OneIn(20) ? Call::Flush : kOfChange[source_.Below(std::size(kOfChange))];
            break;
        case Kind::Flush:
            fault.Of = Call::Flush;
            break;
        case Kind::Close:
            fault.Of = kOfClose[source_.Below(std::size(kOfClose))];
            break;
    }
    if (fault.Of == Call::Write) {
        fault.Error = source_.OneIn(2) ? qx::SystemError::VolumeFull : qx::SystemError::Other;
        fault.Lasting = source_.OneIn(6);
    }
    fault.Partial = source_.OneIn(2) ? 0 : source_.Below(scenario_.FrameSize + 1);
    const uint32_t number = 1 + source_.Below(source_.OneIn(4) ? 60 : 4);
    platform_.TransferBeforeFailing(fault.Partial);
    platform_.Fail(fault.Of, number, fault.Error, fault.Lasting);
    doing_ = std::string(", with ") + qx_test::NameOf(fault.Of) + " number " + std::to_string(number) + " failing" +
             (fault.Lasting ? " from then on" : "") + " after " + std::to_string(fault.Partial) + " bytes";
    return fault;
}

// Does the operation; what it says must agree with the model, which follows. Throws qx::Error.
void FailureRun::Execute(const Operation& operation) {
    const std::string* due = model_.Find(operation.Key);
    switch (operation.What) {
        case Kind::Read: {
            const std::optional<std::string> record = file_->Read(operation.Key);
            if (damaged_.contains(operation.Group)) {
                return;
            }
            if (record.has_value() != (due != nullptr) || (due != nullptr && *record != *due)) {
                Fail("a record reads back differently");
            }
            return;
        }
        case Kind::Write:
            file_->Write(operation.Key, operation.Data);
            model_.Put(operation.Key, operation.Data);
            return;
        case Kind::Delete:
            if (file_->Delete(operation.Key) != (due != nullptr)) {
                Fail("a delete has the wrong outcome");
            }
            if (due != nullptr) {
                model_.Erase(operation.Key);
            }
            return;
        case Kind::Clear:
            file_->Clear();
            model_.Clear();
            failed_ = false;
            damaged_.clear();
            history_.clear();
            return;
        case Kind::Flush:
            session_->Flush();
            return;
        case Kind::Close:
            file_->Close();
            return;
    }
}

// Without a fault, only what is damaged already may fail.
void FailureRun::Demand(const Operation& operation) {
    try {
        Execute(operation);
    } catch (const qx::Error& error) {
        if (operation.What == Kind::Read && damaged_.contains(operation.Group)) {
            return;
        }
        Fail("unexpected failure " + std::to_string(error.Code()));
    }
    if (operation.What == Kind::Close) {
        Open();
    }
}

void FailureRun::Inject(const Operation& operation) {
    before_ = Look().Report();
    const Fault fault = OrderFault(operation);
    std::optional<StatusRecord> failure;
    try {
        Execute(operation);
    } catch (const qx::Error& error) {
        failure = {error.Code(), error.Detail1(), error.Detail2()};
    }
    const bool delivered = platform_.Delivered();
    platform_.Clear();
    const bool known = !damaged_.contains(operation.Group);
    if (delivered && !failure && known) {
        Fail("nothing was told of it");
    }
    if (failure) {
        ++met_.Failures;
        history_ += "\n  operation " + std::to_string(operation_) + " (" + NameOf(operation.What) + ", group " +
                    std::to_string(operation.Group) + ')' + doing_ + (before_.Clean() ? "" : ", on a damaged file");
        if (!delivered && known) {
            Fail("unexpected failure " + std::to_string(failure->Code));
        }
        if (known) {
            CheckStatus(operation, fault, *failure);
        }
        Settle(operation, fault);
    }
    if (operation.What == Kind::Close) {
        Open();
    }
}

void FailureRun::CheckStatus(const Operation& operation, const Fault& fault, const StatusRecord& status) {
    uint32_t due = 104;
    if (fault.Of == Call::Read || fault.Of == Call::GetSize) {
        due = 107;
    } else if (fault.Error == qx::SystemError::VolumeFull) {
        due = 103;
    }
    const bool ofRecord = operation.What <= Kind::Delete && fault.Of != Call::Flush;
    const bool good = status.Code == due && (status.Detail1 == 1 || status.Detail1 == 2) &&
                      (!ofRecord || status.Detail2 == operation.Group + 1);
    if (!good) {
        Fail("status " + std::to_string(status.Code) + ", " + std::to_string(status.Detail1) + ", " +
             std::to_string(status.Detail2));
    }
}

DiskImage FailureRun::Look() {
    qx_check::Options options;
    options.openProcesses = 1;
    options.checkFill = !failed_;
    options.allowLeakedFrames = failed_;
    options.allowCountDrift = failed_;
    DiskImage disk(path_, options, model_);
    const uint32_t group = disk.FirstDifference(model_, damaged_);
    if (group != DiskImage::kNone) {
        Fail("the records of group " + std::to_string(group) + " differ on disk");
    }
    if (!disk.Report().Clean() && damaged_.empty()) {
        Fail("on disk: " + disk.Report().problems.front());
    }
    return disk;
}

void FailureRun::Damage(uint32_t group) {
    if (damaged_.insert(group).second) {
        ++met_.DamagedGroups;
        model_.Group(group).clear();
    }
}

// After a failed operation: the file must hold one of the things that it may hold, and the model takes that over.
void FailureRun::Settle(const Operation& operation, const Fault& fault) {
    if (operation.What == Kind::Flush || operation.What == Kind::Read) {
        Look();
        return;
    }
    failed_ = true;
    const bool mayDamage = MayDamage(operation, fault);
    const bool mayDamageList = MayDamageList(operation, fault);
    qx_check::Options options;
    options.checkFill = false;
    options.allowLeakedFrames = true;
    options.allowCountDrift = true;
    const DiskImage disk(path_, options, model_);
    const std::string problem = disk.Report().Clean() ? "" : disk.Report().problems.front();
    if (operation.What == Kind::Clear) {
        ResolveClear(fault, disk);
    } else if (operation.What != Kind::Close && !Resolve(operation, disk)) {
        if (!mayDamage) {
            Fail("the operation's group holds what it may not hold; " + problem);
        }
        Damage(operation.Group);
    }
    const bool newProblem = disk.Report().problems != before_.problems;
    const bool listIsDamaged = newProblem && mayDamageList && TellsOfFreeList(disk.Report());
    if (newProblem && mayDamage) {
        Damage(operation.Group);
    }
    const uint32_t group = disk.FirstDifference(model_, damaged_);
    if (group != DiskImage::kNone) {
        Fail("the records of group " + std::to_string(group) + " differ on disk; " + problem);
    }
    if (listIsDamaged) {
        ++met_.DamagedLists;
        Restore();
    } else if (newProblem && damaged_.empty()) {
        Fail("on disk: " + problem);
    }
}

// Finds what the group of a failed write or delete holds among what it may hold.
bool FailureRun::Resolve(const Operation& operation, const DiskImage& disk) {
    GroupRecords& group = model_.Group(operation.Group);
    const GroupRecords& found = disk.Group(operation.Group);
    const size_t index = IndexOf(group, operation.Key);
    const bool wasThere = index < group.size();
    const bool isWrite = operation.What == Kind::Write;
    if (found == group) {
        return true;
    }
    GroupRecords allowed = group;
    if (wasThere && isWrite && group[index].data.size() == operation.Data.size()) {
        if (index >= found.size() || !IsPartlyOverwritten(found[index].data, group[index].data, operation.Data)) {
            return false;
        }
        allowed[index].data = found[index].data;
    } else {
        if (wasThere) {
            allowed.erase(allowed.begin() + static_cast<std::ptrdiff_t>(index));
        }
        if (isWrite && found != allowed) {
            allowed.push_back({operation.Key, operation.Data});
        }
    }
    if (found == allowed) {
        group = allowed;
        return true;
    }
    return false;
}

void FailureRun::ResolveClear(const Fault& fault, const DiskImage& disk) {
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
        } else if (disk.Group(i) != model_.Group(i)) {
            Fail("group " + std::to_string(i) + " is neither cleared nor as it was");
        }
        cleared = cleared && isEmpty;
    }
}

// Whether a failure may have hit the group while the records behind the changed one were on their way. What is written
// of the new record itself is cut off again, unless that fails too.
bool FailureRun::MayDamage(const Operation& operation, const Fault& fault) {
    if (operation.What != Kind::Write && operation.What != Kind::Delete) {
        return false;
    }
    const GroupRecords& group = model_.Group(operation.Group);
    const size_t index = IndexOf(group, operation.Key);
    const bool wasThere = index < group.size();
    if (wasThere && operation.What == Kind::Write && group[index].data.size() == operation.Data.size()) {
        return false;
    }
    if (fault.Lasting) {
        return true;
    }
    if (!wasThere) {
        return false;
    }
    const GroupExtent extent(group, index, operation.Group == 0 ? scenario_.HeaderLength : 13, scenario_.FrameSize);
    if (operation.What == Kind::Write) {
        return extent.Following() >= extent.Room();
    }
    const bool oneWrite = extent.Following() + 1 <= extent.Room();
    const bool torn = fault.Partial != 0 && (extent.Following() != 0 || extent.OverflowFrames() != 0);
    return !oneWrite || torn;
}

// The list is rewritten in one write, which may be torn, unless it was, or could become, too long for its first frame:
// moving half of it takes several.
bool FailureRun::MayDamageList(const Operation& operation, const Fault& fault) {
    const GroupRecords& group = model_.Group(operation.Group);
    const GroupExtent extent(group, 0, 13, scenario_.FrameSize);
    const uint64_t capacity = ((scenario_.FrameSize - 7) / 4) & ~uint64_t{1};
    const bool changes = operation.What == Kind::Write || operation.What == Kind::Delete;
    return changes && (fault.Partial != 0 || before_.listFrames > 1 ||
                       before_.freeFrames + extent.OverflowFrames() + 2 >= capacity);
}

// A clear makes everything good again, to the last byte.
void FailureRun::Restore() {
    doing_ = ", clearing without a fault";
    Demand({.What = Kind::Clear});
    Demand({.What = Kind::Close});
    const DiskImage disk(path_, {}, model_);
    if (!disk.Report().Clean()) {
        Fail("on disk: " + disk.Report().problems.front());
    }
}

}  // namespace qx_test
