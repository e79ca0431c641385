#include "model/model_run.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace qx_test {

namespace {

constexpr size_t kHandlesEach = 2;
constexpr size_t kLargestModel = size_t{4} << 20;  // data bytes at which the file shrinks

}  // namespace

ModelRun::ModelRun(const Scenario& scenario, uint64_t seed)
    : scenario_(scenario),
      seed_(seed),
      path_(directory_.File("MODEL")),
      source_(seed, scenario.FrameSize, scenario.Keys, scenario.Longest),
      model_(scenario.FixedModulo()) {
    qx::Session session(library_);
    MakeScenarioFile(scenario_, path_, session, source_, model_);
    OpenAll();
}

void ModelRun::Fail(const std::string& what) const {
    std::ostringstream text;
    text << "seed " << seed_ << ", operation " << operation_ << ", " << scenario_ << ": " << what;
    throw std::runtime_error(text.str());
}

void ModelRun::Require(bool condition, const std::string& what) const {
    if (!condition) {
        Fail(what);
    }
}

void ModelRun::OpenSession(size_t index) {
    Opened& opened = sessions_[index].emplace(library_);
    for (size_t i = 0; i < kHandlesEach; ++i) {
        opened.Files.push_back(opened.Session.OpenFile(path_, {.ReadOnly = index == kReadOnly}));
    }
}

void ModelRun::OpenAll() {
    for (size_t i = 0; i < kSessions; ++i) {
        OpenSession(i);
    }
}

// Handles close one by one, or with their session.
void ModelRun::CloseAll() {
    for (std::optional<Opened>& opened : sessions_) {
        if (source_.OneIn(2)) {
            for (qx::File& file : opened->Files) {
                file.Close();
            }
        }
        opened->Session.Close();
        opened.reset();
    }
}

qx::File& ModelRun::AnyFile() {
    return sessions_[source_.Below(kSessions)]->Files[source_.Below(kHandlesEach)];
}

qx::File& ModelRun::WritableFile() {
    return sessions_[source_.Below(kReadOnly)]->Files[source_.Below(kHandlesEach)];
}

void ModelRun::Run(uint64_t operations) {
    const uint64_t betweenChecks = std::max<uint64_t>(operations / 25, 200);
    for (operation_ = 1; operation_ <= operations; ++operation_) {
        try {
            Operate();
            if (operation_ % betweenChecks == 0) {
                CheckSome();
            }
        } catch (const qx::Error& error) {
            Fail("unexpected failure " + std::to_string(error.Code()) + ": " + error.what());
        }
    }
    CloseAll();
    CheckDisk({});
}

void ModelRun::Operate() {
    if (source_.OneIn(static_cast<uint32_t>(scenario_.Keys) * 2)) {
        growing_ = source_.OneIn(2) && model_.DataBytes() < kLargestModel;
    }
    const std::string key = source_.OneIn(20) ? source_.StrangeKey() : source_.Key();
    const uint32_t choice = source_.Below(1000);
    if (choice < (growing_ ? 450u : 200u)) {
        Write(key);
    } else if (choice < 600) {
        Delete(key);
    } else if (choice < 960) {
        Read(key);
    } else if (choice < 980) {
        AskForGroup(key);
    } else if (choice < 990) {
        ReadHeader();
    } else if (choice < 994) {
        TryReadOnlyChange(key);
    } else if (choice < 996) {
        ReopenOne();
    } else if (choice < 997) {
        sessions_[source_.Below(kSessions)]->Session.Flush();
    } else if (source_.OneIn(20)) {
        Clear();
    }
}

void ModelRun::Write(const std::string& key) {
    const std::string* before = model_.Find(key);
    const bool sameLength = before != nullptr && source_.OneIn(2);
    const std::string data = source_.Data(sameLength ? before->size() : source_.Length());
    WritableFile().Write(key, data);
    model_.Put(key, data);
}

void ModelRun::Delete(const std::string& key) {
    const bool there = model_.Find(key) != nullptr;
    Require(WritableFile().Delete(key) == there, there ? "a record was not deleted" : "a missing record was deleted");
    if (there) {
        model_.Erase(key);
    }
}

void ModelRun::Read(const std::string& key) {
    const std::string* due = model_.Find(key);
    const std::optional<std::string> record = AnyFile().Read(key);
    Require(record.has_value() == (due != nullptr), due != nullptr ? "a record was not found" : "a record too many");
    Require(due == nullptr || *record == *due, "a record reads back differently");
}

void ModelRun::ReadHeader() {
    const qx::HeaderValues header = AnyFile().Header();
    Require(header.Version == scenario_.Version() && header.FrameSize == scenario_.FrameSize &&
                header.SizeLock == scenario_.SizeLock && header.Threshold == 204,
            "the header has changed");
    if (scenario_.HeaderLength > 22) {
        Require(header.RecordCount == model_.RecordCount(), "RecordCount is " + std::to_string(header.RecordCount) +
                                                                ", not " + std::to_string(model_.RecordCount()));
    }
    if (model_.KnowsGroups()) {
        // What a header shorter than 32 bytes lacks may be counted, once the stored value was that small.
        const uint32_t surplus =
            header.Alpha - static_cast<uint32_t>(model_.Alpha(scenario_.HeaderLength, scenario_.FrameSize));
        Require(surplus <= 32u - scenario_.HeaderLength, "Alpha is off by " + std::to_string(surplus));
        Require(header.Modulo == scenario_.Modulo, "Modulo has changed");
    }
}

// The number of groups may change between the calls.
void ModelRun::AskForGroup(const std::string& key) {
    const uint32_t before = AnyFile().Header().Modulo;
    const uint32_t group = AnyFile().GroupNumber(key);
    const uint32_t after = AnyFile().Header().Modulo;
    const auto [low, high] = std::minmax(before, after);
    for (uint32_t modulo = low; modulo <= high; ++modulo) {
        if (qx_check::GroupOf(qx_check::HashKey(key), qx_check::SplitModulo(modulo)) == group) {
            return;
        }
    }
    Fail("group " + std::to_string(group) + " is wrong for " + std::to_string(low) + " groups");
}

void ModelRun::TryReadOnlyChange(const std::string& key) {
    qx::File& file = sessions_[kReadOnly]->Files[source_.Below(kHandlesEach)];
    try {
        switch (source_.Below(3)) {
            case 0:
                file.Write(key, "data");
                break;
            case 1:
                file.Delete(key);
                break;
            default:
                file.Clear();
                break;
        }
    } catch (const qx::Error& error) {
        Require(error.Code() == 102 && error.Detail1() == 1 && error.Detail2() == 0, "not refused as read-only");
        return;
    }
    Fail("a read-only handle changed the file");
}

void ModelRun::Clear() {
    WritableFile().Clear();
    model_.Clear();
    growing_ = true;
}

void ModelRun::ReopenOne() {
    const size_t index = source_.Below(kSessions);
    Opened& opened = *sessions_[index];
    if (source_.OneIn(3)) {
        opened.Session.Close();
        OpenSession(index);
        return;
    }
    qx::File& file = opened.Files[source_.Below(kHandlesEach)];
    file.Close();
    file = opened.Session.OpenFile(path_, {.ReadOnly = index == kReadOnly});
}

// A file that is open is only looked at while nothing works on it by itself.
void ModelRun::CheckSome() {
    if (model_.KnowsGroups() && source_.OneIn(2)) {
        qx_check::Options options;
        options.openProcesses = 1;
        CheckDisk(options);
        return;
    }
    CloseAll();
    CheckDisk({});
    OpenAll();
}

void ModelRun::CheckDisk(const qx_check::Options& options) {
    const DiskImage disk(path_, options, model_);
    Require(disk.Report().Clean(), disk.Report().Clean() ? "" : "on disk: " + disk.Report().problems.front());
    const uint32_t group = disk.FirstDifference(model_);
    Require(group == DiskImage::kNone, "the records of group " + std::to_string(group) + " differ on disk");
}

}  // namespace qx_test
