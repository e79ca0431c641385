// Every counter: a way to raise it by one, and the levels at which that shows.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <set>
#include <thread>

#include "runtime/library_record.h"
#include "storage/layout/frame_header.h"
#include "support/file_test.h"
#include "support/statistics.h"

namespace qx_test {
namespace {

class CounterAudit : public FileTest {
  protected:
    CounterAudit() { file_ = CreateAndOpen("F", {sizeof(CreateOptions), 1, 256, 0, 0, 120}); }

    // The reports of the process, the volume, the file, the session and the handle.
    using Counts = std::vector<std::pair<char, Report>>;

    Counts CountsNow() {
        return {{'P', ReportOn(Session, kProcessReport)},
                {'V', ReportOn(Session, kVolumeReport, Path("F"))},
                {'F', ReportOn(Session, kFileReport, Path("F"))},
                {'S', ReportOn(Session, kSessionReport, "", Session)},
                {'H', ReportOn(Session, kHandleReport, "", file_)}};
    }

    // The last entry with the label; nothing when the level does not count it.
    static std::optional<uint32_t> CountIn(const Report& report, std::string_view label) {
        const auto found =
            std::find_if(report.rbegin(), report.rend(), [&](const auto& entry) { return entry.first == label; });
        if (found == report.rend()) {
            return std::nullopt;
        }
        return found->second.empty() ? 0 : static_cast<uint32_t>(std::stoul(found->second));
    }

    template <class Call>
    void Do(Call&& call, bool good = true) {
        EXPECT_EQ(Run(std::forward<Call>(call)), good);
        AcceptCallbacks();
        Faults.Clear();
    }

    void OnFile(int32_t (*call)(uint32_t, StatusRecord*)) {
        Do([&](StatusRecord* status) { return call(file_, status); });
    }
    void OnRecord(int32_t (*call)(uint32_t, uint32_t, StatusRecord*), bool good = true) {
        Buffer(kKey) = "key";
        Do([&](StatusRecord* status) { return call(file_, kKey, status); }, good);
    }
    void Read(bool good = true) {
        Buffer(kKey) = "key";
        Do([&](StatusRecord* status) { return QXReadRecord(file_, kKey, kData, status); }, good);
    }
    void Write(std::string_view data, bool good = true) {
        Buffer(kKey) = "key";
        Buffer(kData) = data;
        Do([&](StatusRecord* status) { return QXWriteRecord(file_, kKey, kData, status); }, good);
    }
    // A record whose bytes are spoilt on disk while it is read.
    void WithSpoiltFile(size_t dataLength, const std::function<void(FileBytes&)>& spoil) {
        Write(std::string(dataLength, 'd'));
        const FileBytes good = ReadHashedFile(Path("F"));
        FileBytes bad = good;
        spoil(bad);
        const auto store = [&](const FileBytes& bytes) {
            WriteWholeFile(Path("F.LK"), bytes.Primary);
            WriteWholeFile(Path("F.OV"), bytes.Overflow);
        };
        store(bad);
        Read(false);
        store(good);
        Read();
    }

    // Somebody else, who counts like a call on the file, has group 0 while `body` runs.
    void WhileGroupIsHeld(const std::function<void()>& body) {
        const qx::CounterLevels levels{.File = &Record(file_).Counters};
        qx::GroupLockRequest theirs;
        ASSERT_TRUE(Record(file_).GroupLocks.Lock(theirs, 0, true, levels));
        body();
        Record(file_).GroupLocks.Unlock(theirs, levels);
    }

    void WaitForAGroup() {
        std::thread waiting;
        WhileGroupIsHeld([&] {
            const qx::CounterSet& counters = Record(file_).Counters;
            const uint32_t before = counters.Value(qx::Counter::GroupLockSuspends);
            waiting = std::thread([this] {
                StatusRecord status{};
                Buffer(kKey) = "key";
                EXPECT_EQ(QXReadRecord(file_, kKey, kData, &status), 1);
            });
            while (counters.Value(qx::Counter::GroupLockSuspends) == before) {
                std::this_thread::yield();
            }
        });
        waiting.join();
    }

    void RefuseEvents() {
        Faults.Fail(Call::EventCreate, 1);
        Faults.Fail(Call::EventReset, 1);
    }

    void AwaitModulo(uint32_t modulo) {
        while (Record(file_).Modulo != modulo) {
            std::this_thread::yield();
        }
    }

    uint32_t file_ = kNone;
    uint32_t other_ = kNone;  // handle or session
    uint32_t made_ = 0;
};

TEST_F(CounterAudit, EveryCounterIsRaisedAtItsLevels) {
    struct Row {
        const char* Label;
        const char* Levels;
        std::function<void()> Act;
        std::function<void()> Prepare = nullptr;
    };
    const auto openAnother = [&] { other_ = Open("F"); };
    const auto openSession = [&] {
        Do([&](StatusRecord* status) { return QXOpenSession(TestCallback, nullptr, &other_, status); });
    };
    const auto closeSession = [&] { Do([&](StatusRecord* status) { return QXCloseSession(other_, status); }); };
    const auto newName = [&] { return "N" + std::to_string(++made_); };
    const auto createTwo = [&] {
        EXPECT_TRUE(Create(newName()));
        EXPECT_TRUE(Create(newName()));
    };
    const auto openOne = [&] { Open("N" + std::to_string(made_)); };
    // Making a file has raised the number before, for as long as that took.
    const auto openTwo = [&] {
        openOne();
        Open("N" + std::to_string(made_ - 1));
    };
    const auto useNewVolume = [&] {
        const std::string directory = "D" + std::to_string(++made_);
        std::filesystem::create_directory(Path(directory));
        EXPECT_TRUE(Create(directory + "/F"));
    };
    const auto write = [&] { Write("data"); };
    const auto read = [&] { Read(); };
    const auto walk = [&](decltype(QXReadNextKeyIdGroup) step, bool good = true) {
        Do([&](StatusRecord* status) { return step(file_, kData, status); }, good);
    };
    const auto endWalk = [&] { OnFile(QXClearSelect); };
    const auto hold = [&] { EXPECT_TRUE(LockGroup(file_, 0xFFFFFFFE)); };
    const auto lock = [&] { EXPECT_TRUE(LockGroup(file_, 0)); };
    const auto unlock = [&] { EXPECT_TRUE(UnlockGroup(file_, 0)); };
    const auto lockAndUnlock = [&] {  // a lock stores the counts first, which takes the header's group, too
        lock();
        unlock();
    };
    const auto letGo = [&] { EXPECT_TRUE(UnlockGroup(file_, 0xFFFFFFFE)); };
    const auto letGoThroughAnother = [&] {  // which leaves the hold
        EXPECT_TRUE(UnlockGroup(other_, 0xFFFFFFFE));
        EXPECT_EQ(Record(file_).SelectCount, 1U);
    };

    const Row rows[] = {
        {"Peak Active Session Files", "PVFS", openAnother},
        {"Active Session Files", "PVFS", openAnother},
        {"Add Session Files", "PVFS", openAnother},
        {"Remove Session Files", "PVFS", [&] { EXPECT_TRUE(Close(other_)); }},
        {"Peak Active Sessions", "P", openSession},
        {"Active Sessions", "P", openSession},
        {"Add Sessions", "P", openSession},
        {"Remove Sessions", "P", closeSession},
        {"Peak Active Volumes", "P", useNewVolume},
        {"Active Volumes", "P", useNewVolume},
        {"Add Volumes", "P", useNewVolume},
        {"Peak Active Files", "PV", openTwo, createTwo},
        {"Active Files", "PV", openOne, createTwo},
        {"Add Files", "PV", openOne, createTwo},
        {"Peak Active File Handles", "P", openTwo, createTwo},
        {"Active File Handles", "P", openOne, createTwo},

        {"Initializes", "P",
         [&] {
             ApiVersionRecord version{sizeof version, 1, 1, 0};
             Do([&](StatusRecord* status) { return QXInitialize(&version, status); });
         }},
        {"Terminates", "P", [&] { Do([](StatusRecord* status) { return QXTerminate(status); }); }},
        {"Open Sessions", "P", openSession},
        {"Close Sessions", "P", closeSession},
        {"Get Statistics", "PS", [&] { EXPECT_NE(GetStatistics(Session, 7), kNothing); }},
        {"Unlock Alls", "PS", [&] { Do([&](StatusRecord* status) { return QXUnlockAll(Session, status); }); }},
        {"Flushes", "PS", [&] { EXPECT_TRUE(Flush()); }},
        {"Create Files", "PVS", [&] { EXPECT_TRUE(Create(newName())); }},
        {"Delete Files", "PVFS", [&] { EXPECT_FALSE(Delete("F")); }},
        {"Open Files", "PVFSH",
         [&] {
             EXPECT_EQ(Open("F", {sizeof(OpenOptions), 1, 0, 0, 0, 0, 0, 0}), file_);
         }},
        {"Close Files", "PVFS", [&] { EXPECT_TRUE(Close(other_)); }, openAnother},
        {"Get File Headers", "PVFSH", [&] { EXPECT_TRUE(HeaderOf(file_).has_value()); }},
        {"Read Records", "PVFSH", [&] { Read(false); }},
        {"Read Only Records", "PVFSH",
         [&] {
             Buffer(kKey) = "key";
             Do([&](StatusRecord* status) { return QXReadOnlyRecord(file_, kKey, kData, status); }, false);
         }},
        {"Write Records", "PVFSH", write},
        {"Delete Records", "PVFSH", [&] { EXPECT_FALSE(Erase(file_, "no such key")); }},
        {"Shared Lock Files", "PVFSH", [&] { OnFile(QXSharedLockFile); }},
        {"Unlock Files", "PVFSH", [&] { OnFile(QXUnlockFile); }},
        {"Exclusive Lock Files", "PVFSH", [&] { OnFile(QXExclusiveLockFile); }},
        {"Shared Lock Records", "PVFSH", [&] { OnRecord(QXSharedLockRecord); }},
        {"Exclusive Lock Records", "PVFSH", [&] { OnRecord(QXExclusiveLockRecord, false); }},
        {"Unlock Records", "PVFSH", [&] { OnRecord(QXUnlockRecord); }},
        {"Read Next Id Groups", "PVFSH", [&] { walk(QXReadNextKeyIdGroup); }},
        {"Clear Selects", "PVFSH", endWalk},
        {"Read Previous Id Groups", "PVFSH", [&] { walk(QXReadPreviousKeyIdGroup); }},
        {"Clear Files", "PVFSH", [&] { EXPECT_TRUE(Clear(file_)); }, endWalk},
        {"Get Group Numbers", "PVFSH", [&] { EXPECT_EQ(GroupOfKey(file_, "key"), 0U); }},
        {"Lock Groups", "PVFSH", hold},
        {"Unlock Groups", "PVFSH", letGo},

        {"Select Locks", "PVF", hold},
        {"Select Unlocks", "PVF", letGoThroughAnother, openAnother},
        {"Select Unlocks", "PVF", letGo},
        {"Read Frames", "PVF", read, write},
        {"Write Frames", "PVF", [&] { Write("same"); }},
        {"Group Locks", "PVF", lock, lockAndUnlock},
        {"Group Unlocks", "PVF", unlock},
        {"Group Lock Suspends", "PVF", [&] { WaitForAGroup(); }},
        {"Group Unlock Resumes", "PVF", [&] { WaitForAGroup(); }},
        {"Group Lock Init Suspend Errors", "PVF",
         [&] {
             WhileGroupIsHeld([&] {
                 RefuseEvents();
                 Read(false);
             });
         }},
        {"Expand Modulos", "PVF",
         [&] {
             Write(std::string(200, 'd'));
             AwaitModulo(2);
         }},
        {"Contract Modulos", "PVF",
         [&] {
             Write("");
             AwaitModulo(1);
         }},

        {"Read Next Allocation Errors", "PS",
         [&] {
             RefuseCallback(1, 1, {1, 2, 3});
             Buffer(kData).clear();
             walk(QXReadNextKeyIdGroup, false);
         }},
        {"Read Allocation Errors", "PS",
         [&] {
             RefuseCallback(2, 1, {1, 2, 3});
             Read(false);
         }},
        {"Verify Group Allocation Errors", "PS",
         [&] {
             RefuseCallback(2, 1, {1, 2, 3});
             EXPECT_FALSE(Verify(file_, 1).has_value());
             AcceptCallbacks();
         }},
        {"Allocate File Data Errors", "P",
         [&] {
             Faults.Fail(Call::HeapAllocate, 1);
             Do([&](StatusRecord* status) { return QXOpenSession(TestCallback, nullptr, &other_, status); }, false);
         },
         [&] {
             openSession();
             openSession();  // the numbers that sessions have left are in use again
         }},
        {"Allocate Lock Data Errors", "P",
         [&] {
             Faults.Fail(Call::HeapAllocate, 1);
             OnRecord(QXSharedLockRecord, false);
         }},
        {"Allocate Temporary Data Errors", "P",
         [&] {
             Faults.Fail(Call::BufferAllocate, 1);
             EXPECT_FALSE(Create(newName(), FixedFile(1, 1 << 20)));
             Faults.Clear();
         }},
        {"Claim Mutex Init Suspend Errors", "P",
         [&] {
             qx::ClaimMutex::Node node;
             ASSERT_TRUE(qx::theLibrary.ApiMutex.TryClaim(node));
             RefuseEvents();
             EXPECT_FALSE(Flush());
             Faults.Clear();
             qx::theLibrary.ApiMutex.Release(node);
         }},

        {"Read Errors", "PVF",
         [&] {
             Faults.Fail(Call::Read, 1);
             Read(false);
         }},
        {"Volume Full Errors", "PVF",
         [&] {
             Faults.Fail(Call::Write, 1, qx::SystemError::VolumeFull);
             Write("some data", false);
         }},
        {"Write Errors", "PVF",
         [&] {
             Faults.Fail(Call::Write, 1);
             Write("other data", false);
         },
         [&] { EXPECT_TRUE(Clear(file_)); }},
        {"GFE Record Termination Errors", "PVF",
         [&] { WithSpoiltFile(3, [](FileBytes& bytes) { bytes.Primary[bytes.Primary.rfind('\xFF')] = 'x'; }); },
         [&] { EXPECT_TRUE(Clear(file_)); }},
        {"GFE Record Truncated Errors", "PVF",
         [&] {
             WithSpoiltFile(500, [](FileBytes& bytes) {
                 qx::SetForwardLink(reinterpret_cast<uint8_t*>(bytes.Primary.data()), 0);
             });
         },
         [&] {
             hold();  // the number of groups stays
         }},
        {"GFE Link Errors", "PVF",
         [&] {
             WithSpoiltFile(500, [](FileBytes& bytes) {
                 const uint32_t first = qx::ForwardLink(reinterpret_cast<const uint8_t*>(bytes.Primary.data()));
                 qx::SetOwnerGroup(reinterpret_cast<uint8_t*>(bytes.Overflow.data()) + size_t{first} * 256, 9);
             });
         }},
    };

    std::set<std::string_view> labels;
    for (const Row& row : rows) {
        labels.insert(row.Label);
        if (row.Prepare) {
            row.Prepare();
        }
        const Counts before = CountsNow();
        row.Act();
        const Counts after = CountsNow();
        // The reports count themselves: five of them lie between two readings of the same one.
        const uint32_t reports = std::string_view(row.Label) == "Get Statistics" ? 5 : 0;
        for (size_t i = 0; i < before.size(); ++i) {
            const char level = before[i].first;
            const bool expected = std::string_view(row.Levels).find(level) != std::string_view::npos;
            const auto was = CountIn(before[i].second, row.Label);
            const auto is = CountIn(after[i].second, row.Label);
            EXPECT_TRUE(was || !expected) << row.Label << " is missing at " << level;
            if (was && is) {
                EXPECT_EQ(*is - *was, expected ? 1 + reports : 0U) << row.Label << " at " << level;
            }
        }
    }
    EXPECT_EQ(labels.size(), qx::kCounterCount) << "a row for each";
}

}  // namespace
}  // namespace qx_test
