// Files of many shapes, each worked on for a long time beside a model.
#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <optional>
#include <set>

#include "model/scenario.h"
#include "support/test_seed.h"

namespace qx_test {
namespace {

class ModelRun : ModelFile {
  public:
    ModelRun(const Scenario& scenario, uint64_t seed) : ModelFile(scenario, seed) {
        qx::Session session(library_);
        MakeFile(session);
    }

    // Throws, naming the seed and the operation, as soon as file and model disagree.
    void Run(uint64_t operations) {
        const uint64_t betweenChecks = std::max<uint64_t>(operations / 25, 200);
        OpenAll();
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
        Require(scenario_.SizeLock != 0 || most_ > 3 * least_, "the file has hardly grown and shrunk");
    }

  private:
    struct Opened {
        explicit Opened(const qx::Library& library) : Session(library) {}

        qx::Session Session;
        std::vector<qx::File> Files;
    };

    void Operate() {
        if (source_.OneIn(static_cast<uint32_t>(scenario_.Keys) * 3)) {
            growing_ = !growing_;
        }
        const std::string key = source_.OneIn(20) ? source_.StrangeKey() : source_.Key();
        const uint32_t choice = source_.Below(1000);
        if (choice < (growing_ ? 550u : 60u)) {
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
        } else if (source_.OneIn(5)) {
            Walk();
        } else if (source_.OneIn(20)) {
            WritableFile().Clear();
            model_.Clear();
            growing_ = true;
        }
    }

    void Write(const std::string& key) {
        const std::string* before = model_.Find(key);
        const bool sameLength = before != nullptr && source_.OneIn(2);
        const std::string data = source_.Data(sameLength ? before->size() : source_.Length());
        WritableFile().Write(key, data);
        model_.Put(key, data);
    }

    void Delete(const std::string& key) {
        const bool there = model_.Find(key) != nullptr;
        Require(WritableFile().Delete(key) == there, "a delete has the wrong outcome");
        if (there) {
            model_.Erase(key);
        }
    }

    void Read(const std::string& key) {
        const std::string* due = model_.Find(key);
        const std::optional<std::string> record = AnyFile().Read(key);
        Require(record.has_value() == (due != nullptr), "a record is missing, or one too many");
        Require(due == nullptr || *record == *due, "a record reads back differently");
    }

    void ReadHeader() {
        const qx::HeaderValues header = AnyFile().Header();
        Require(header.Version == scenario_.Version() && header.FrameSize == scenario_.FrameSize &&
                    header.SizeLock == sizeLock_ && header.Threshold == 204,
                "the header has changed");
        Require(scenario_.HeaderLength == 22 || header.RecordCount == model_.RecordCount(), "RecordCount is off");
        most_ = std::max(most_, header.Modulo);
        least_ = std::min(least_, header.Modulo);
        if (model_.KnowsGroups()) {
            // A stored value is taken to lie between that of empty groups under a 32-byte header and that of full ones.
            // Under a shorter header the first adds what is missing; the second takes it away again, which a walk
            // that has counted exactly in between does not know.
            const auto due = static_cast<int64_t>(model_.Alpha(scenario_.HeaderLength, scenario_.FrameSize));
            Require(std::abs(header.Alpha - due) <= 32 - scenario_.HeaderLength, "Alpha is off");
            Require(header.Modulo == scenario_.Modulo, "Modulo has changed");
        }
    }

    // The number of groups may change between the calls.
    void AskForGroup(const std::string& key) {
        const uint32_t before = AnyFile().Header().Modulo;
        const uint32_t group = AnyFile().GroupNumber(key);
        const uint32_t after = AnyFile().Header().Modulo;
        bool agrees = false;
        for (uint32_t modulo = std::min(before, after); modulo <= std::max(before, after); ++modulo) {
            agrees |= qx_check::GroupOf(qx_check::HashKey(key), qx_check::SplitModulo(modulo)) == group;
        }
        Require(agrees, "the wrong group for a key");
    }

    // All the keys, each once, or the first ones. A walk that may change the file ends the state in which it only
    // grows.
    void Walk() {
        const size_t index = source_.Below(kSessions);
        qx::File& file = sessions_[index]->Files[source_.Below(kHandlesEach)];
        size_t wanted = source_.OneIn(4) ? source_.Below(model_.RecordCount() + 1) : SIZE_MAX;
        std::set<std::string> keys;
        const auto take = [&](auto&& walk) {
            for (const std::string_view key : walk) {
                Require(model_.Find(key) != nullptr, "a walk finds a key that is not there");
                Require(keys.emplace(key).second, "a walk finds a key twice");
                if (keys.size() == wanted) {
                    return;
                }
            }
            Require(keys.size() == model_.RecordCount(), "a walk misses keys");
        };
        source_.OneIn(3) ? take(file.ReverseKeys()) : take(file.Keys());
        if (index != kReadOnly) {
            sizeLock_ &= ~1u;
        }
    }

    void TryReadOnlyChange(const std::string& key) {
        qx::File& file = sessions_[kReadOnly]->Files[source_.Below(kHandlesEach)];
        const uint32_t choice = source_.Below(3);
        try {
            choice == 0 ? file.Write(key, "data") : choice == 1 ? void(file.Delete(key)) : file.Clear();
        } catch (const qx::Error& error) {
            Require(error.Code() == 102 && error.Detail1() == 1 && error.Detail2() == 0, "not refused as read-only");
            return;
        }
        Fail("a read-only handle changed the file");
    }

    void OpenSession(size_t index) {
        Opened& opened = sessions_[index].emplace(library_);
        for (size_t i = 0; i < kHandlesEach; ++i) {
            opened.Files.push_back(opened.Session.OpenFile(path_, {.ReadOnly = index == kReadOnly}));
        }
    }

    void OpenAll() {
        for (size_t i = 0; i < kSessions; ++i) {
            OpenSession(i);
        }
    }

    // Handles close one by one, or with their session.
    void CloseAll() {
        for (std::optional<Opened>& opened : sessions_) {
            if (source_.OneIn(2)) {
                std::for_each(opened->Files.begin(), opened->Files.end(), [](qx::File& file) { file.Close(); });
            }
            opened->Session.Close();
            opened.reset();
        }
    }

    void ReopenOne() {
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
    void CheckSome() {
        if (model_.KnowsGroups() && source_.OneIn(2)) {
            CheckDisk({.allowCutSurplus = true, .openProcesses = 1});
            return;
        }
        CloseAll();
        CheckDisk({.allowCutSurplus = true});
        OpenAll();
    }

    qx::File& AnyFile() { return sessions_[source_.Below(kSessions)]->Files[source_.Below(kHandlesEach)]; }
    qx::File& WritableFile() { return sessions_[source_.Below(kReadOnly)]->Files[source_.Below(kHandlesEach)]; }

    static constexpr size_t kSessions = 3;
    static constexpr size_t kReadOnly = kSessions - 1;  // all handles of this session are read-only
    static constexpr size_t kHandlesEach = 2;

    bool growing_ = true;
    uint32_t sizeLock_ = scenario_.SizeLock;
    uint32_t most_ = 0;  // groups
    uint32_t least_ = UINT32_MAX;
    qx::Library library_;
    std::array<std::optional<Opened>, kSessions> sessions_;
};

constexpr size_t kMegabyte = size_t{1} << 20;

// Chains from none to dozens of overflow frames, and free lists that spill into many frames.
const Scenario kScenarios[] = {
    {32, 256, 7, 2, 300, 50'000},     {22, 256, 1, 2, 60, 20'000},        {26, 1000, 13, 2, 600, kMegabyte},
    {22, 1000, 3, 2, 150, 100'000},   {32, 1024, 211, 2, 800, kMegabyte}, {26, 1024, 2, 2, 120, 200'000},
    {32, 4096, 5, 2, 400, kMegabyte}, {22, 4096, 17, 2, 600, kMegabyte},  {32, 70'000, 3, 2, 300, kMegabyte},
    {32, 256, 1, 0, 500, 50'000},     {26, 1000, 3, 1, 500, 200'000},     {22, 4096, 5, 0, 1000, 200'000},
    {26, 256, 1, 0, 2000, 5000},      {32, 1024, 40, 0, 1500, 50'000},
};

class ModelTest : public testing::TestWithParam<Scenario> {};
using SlowModelTest = ModelTest;

TEST_P(ModelTest, AgreesWithAMap) {
    ModelRun(GetParam(), TestSeed()).Run(30'000);
}

TEST_P(SlowModelTest, AgreesWithAMap) {
    ModelRun(GetParam(), TestSeed()).Run(1'000'000 / std::size(kScenarios) + 1);
}

INSTANTIATE_TEST_SUITE_P(Files, ModelTest, testing::ValuesIn(kScenarios));
INSTANTIATE_TEST_SUITE_P(Files, SlowModelTest, testing::ValuesIn(kScenarios));

}  // namespace
}  // namespace qx_test
