// Every call with every one of its calls to the operating system failing in turn: the call says so or gets over it,
// holds nothing afterwards, and the file is as good as the rules for failures want it.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <set>

#include "runtime/library_record.h"
#include "support/fake_time.h"
#include "support/file_test.h"
#include "support/statistics.h"

namespace qx_test {
namespace {

using qx::Counter;
using qx::SystemError;

constexpr uint32_t kModulo = 3;
constexpr uint32_t kFrameSize = 256;
constexpr uint32_t kGroup = 1;  // in which the calls work

bool IsFileCall(Call call) {
    return call <= Call::Flush;
}

// The codes with which a call may answer a failure of the system.
std::set<uint32_t> CodesFor(Call call, SystemError error) {
    static const std::map<Call, std::set<uint32_t>> codes = {
        {Call::Exists, {230, 231, 1008, 1009, 1029}},
        {Call::Create, {1008, 1009, 1029}},
        {Call::Open, {102, 104, 1009, 1029}},  // opened for reading instead, a file cannot be changed
        {Call::Lock, {1012, 1026, 1027}},
        {Call::ClaimForDelete, {104, 1029}},
        {Call::Delete, {104, 1029}},
        {Call::Read, {107}},
        {Call::GetSize, {107, 1003}},
        {Call::SetSize, {104}},
        {Call::Flush, {104}},
        {Call::HeapAllocate, {1015}},
        {Call::BufferAllocate, {1014}},
        {Call::CurrentDirectory, {1006}},
        {Call::MountTable, {1006, 1029}},
    };
    const auto known = codes.find(call);
    return known != codes.end() ? known->second : std::set{error == SystemError::VolumeFull ? 103U : 104U};
}

std::string Data(size_t length) {
    return std::string(length, 'd');
}

// One call to be tried, and what it leaves.
struct Trial {
    std::function<int32_t(uint32_t file, StatusRecord* status)> Work;
    std::function<void()> Undo;                // of a success that keeps something
    std::string Key;                           // of the record that it changes, if it changes one
    std::optional<std::string> After;          // that record's data when it succeeds
    bool Shifts = false;                       // moves other records of its group: a failure may leave them broken
    bool Overwrites = false;                   // in place: a failure may leave old data beside new
    bool Empties = false;                      // the whole file
    bool Closes = false;                       // the handle
    std::function<void(uint32_t file)> First;  // done with the file before, without failures
};

class FailureSweep : public FileTest {
  protected:
    FailureSweep() { CloseSession(); }
    ~FailureSweep() override { OpenSession(); }

    void CloseSession() {
        ASSERT_TRUE(Run([&](StatusRecord* status) { return QXCloseSession(Session, status); }));
    }

    // How the file is when the call comes.
    enum class State { Open, Closed, Unloaded };

    // Makes the bytes that every trial begins with.
    template <class Fill>
    void Build(Fill&& fill) {
        OpenSession();
        Delete("F");
        const uint32_t file = CreateAndOpen("F", FixedFile(kModulo, kFrameSize));
        fill(file);
        ASSERT_TRUE(Close(file));
        ASSERT_EQ(Problems("F"), "");
        bytes_ = ReadHashedFile(Path("F"));
        records_ = StoredRecords("F");
        CloseSession();
    }

    // Runs `once` with the first, second and every further call to the system failing, each in all ways, until there is
    // no further one. It orders the failure with OrderFailure and returns whether that was delivered.
    template <class Once>
    void EachFailure(const std::string& name, Once&& once) {
        std::vector<Call> calls;
        for (const SystemError error :
             {SystemError::Other, SystemError::VolumeFull, SystemError::NoHandles, SystemError::EndOfFile}) {
            // The first round has no failure.
            for (uint64_t nth = 0;; ++nth) {
                const bool known = nth < calls.size();
                if (error != SystemError::Other && known && !IsFileCall(calls[nth])) {
                    continue;
                }
                SCOPED_TRACE(name + ", call " + std::to_string(nth) + (known ? NameOf(calls[nth]) : "") + ", error " +
                             std::to_string(static_cast<int>(error)));
                const bool delivered = once(nth, error);
                ASSERT_FALSE(HasFailure());
                if (error == SystemError::Other) {
                    calls.push_back(at_);
                }
                if (!delivered && nth > 0) {
                    break;
                }
                ++tried_;
            }
        }
    }

    // A call with the failure: whether it succeeded. Whether and where the failure was delivered stays in at_.
    template <class Function>
    bool RunFailing(uint64_t nth, SystemError error, Function&& call) {
        Faults.TransferBeforeFailing(torn_);
        Faults.FailAny(nth, error);
        const bool good = Run(call);
        delivered_ = Faults.Delivered();
        at_ = Faults.DeliveredCall();
        Faults.Clear();
        if (!delivered_) {
            EXPECT_TRUE(good) << testing::PrintToString(LastStatus());
        } else if (!good) {
            EXPECT_EQ(CodesFor(at_, error).count(LastStatus()[0]), 1U) << testing::PrintToString(LastStatus());
            EXPECT_LE(LastStatus()[1], 2U);
        }
        return good;
    }

    void Try(const std::string& name, const Trial& trial) {
        for (const State state : {State::Open, State::Closed, State::Unloaded}) {
            EachFailure(name + ", state " + std::to_string(static_cast<int>(state)),
                        [&](uint64_t nth, SystemError error) { return TryOnce(trial, state, nth, error); });
        }
    }

    // A call that needs no open file.
    template <class Function, class Prepare, class Verify>
    void TryNamed(const std::string& name, Prepare&& prepare, Function&& call, Verify&& verify) {
        EachFailure(name, [&](uint64_t nth, SystemError error) {
            const Holdings atRest = Held();
            OpenSession();
            prepare();
            Buffer(kName) = Path("F");
            const Holdings held = Held();
            const bool good = RunFailing(nth, error, call);
            ExpectSameHoldings(held);
            verify(good);
            CloseSession();
            if (nth > 0) {
                EXPECT_EQ(Held(), atRest);
            }
            return delivered_;
        });
    }

    void ExpectSameHoldings(const Holdings& before) {
        Holdings now = Held();
        now.HeapBlocks = before.HeapBlocks;  // what a session or an open file may keep until it ends
        EXPECT_EQ(now, before);
        ExpectNothingHeld();
    }

    bool TryOnce(const Trial& trial, State state, uint64_t nth, SystemError error) {
        const Holdings atRest = Held();
        WriteWholeFile(Path("F") + ".LK", bytes_.Primary);
        WriteWholeFile(Path("F") + ".OV", bytes_.Overflow);
        OpenSession();
        const uint32_t file = Open("F");
        if (trial.First) {
            trial.First(file);
        }
        Settle(file, state);
        const Records before = trial.First ? StoredRecords("F") : records_;
        const Holdings held = Held();
        const Counts counts = CountsOf(file);

        const bool good = RunFailing(nth, error, [&](StatusRecord* status) { return trial.Work(file, status); });
        if (!good && !trial.Closes) {
            CompareCounts(counts, CountsOf(file), at_, LastStatus()[0]);
        }
        if (good && trial.Undo) {
            trial.Undo();
        }
        ExpectSameHoldings(held);
        if (nth % 2 == 1) {
            ExpectOpenFilesIdle();
        }
        if (!trial.Closes) {
            EXPECT_TRUE(Close(file)) << testing::PrintToString(LastStatus());
        }
        Judge(trial, before, good);
        CloseSession();
        if (nth > 0) {
            EXPECT_EQ(Held(), atRest);  // by then the handle tables have grown as far as they will
        }
        return delivered_;
    }

    void Settle(uint32_t file, State state) {
        if (state == State::Open) {
            return;
        }
        while (qx::CloseOneIdleFile()) {
        }
        if (state == State::Unloaded) {
            // As after a group lock; changes that are not stored would be lost.
            if (!Record(file).Counts.DifferFromStored(Record(file).Group0HeaderSize)) {
                Record(file).Group0HeaderSize = 0;
            }
        }
    }

    // Nothing uses them, so that they can be closed when handles are short.
    void ExpectOpenFilesIdle() {
        while (qx::CloseOneIdleFile()) {
        }
        EXPECT_EQ(OpenParts(), 0);
    }

    // The file's bytes, and then whether it still works.
    void Judge(const Trial& trial, const Records& before, bool good) {
        qx_check::Options options;
        options.checkFill = false;
        options.allowLeakedFrames = true;
        options.allowCountDrift = true;
        Records stored[kModulo];
        const qx_check::Report report = qx_check::CheckFile(
            Path("F"), options,
            [&](std::string_view key, std::string_view data, uint32_t group) { stored[group].emplace(key, data); });
        const bool broken = trial.Shifts && !good && !report.Clean();
        broken_ += broken;
        if (!broken && !(trial.Empties && !good)) {
            EXPECT_EQ(report.Clean() ? "" : report.problems.front(), "");
        }
        for (const auto& [key, data] : before) {
            const uint32_t group = GroupIn(kModulo, key);
            if (key == trial.Key || trial.Empties || (broken && group == kGroup)) {
                continue;
            }
            EXPECT_TRUE(stored[group].count(key) == 1 && stored[group][key] == data) << "lost: " << key;
        }
        const auto target = stored[kGroup].find(trial.Key);
        const auto old = before.find(trial.Key);
        if (target != stored[kGroup].end() && !trial.Overwrites && !broken) {
            EXPECT_TRUE(target->second == trial.After ||
                        (!good && old != before.end() && target->second == old->second))
                << "neither old nor new data";
        }
        if (good && !trial.Key.empty()) {
            EXPECT_TRUE((target == stored[kGroup].end() ? std::nullopt : std::optional(target->second)) == trial.After);
        }
        if (trial.Empties && !good) {
            const uint32_t file = Open("F");
            EXPECT_TRUE(Clear(file));
            EXPECT_TRUE(Close(file));
        }
        KeepModulo();
        CheckThatItWorks(broken, options);
    }

    // What comes after a trial is not to move its groups.
    void KeepModulo() const {
        std::string primary = ReadHashedFile(Path("F")).Primary;
        primary[20] = 2;
        WriteWholeFile(Path("F") + ".LK", primary);
    }

    void CheckThatItWorks(bool broken, const qx_check::Options& options) {
        const uint32_t file = Open("F");
        for (uint32_t group = 0; group < kModulo; ++group) {
            if (broken && group == kGroup) {
                continue;
            }
            const std::vector<std::string> keys = KeysOf(group, kModulo, 42);
            for (const size_t i : {40, 41}) {
                const std::string data(i * 20, 'w');
                EXPECT_TRUE(Put(file, keys[i], data)) << testing::PrintToString(LastStatus());
                EXPECT_TRUE(Get(file, keys[i]) == data);
            }
        }
        EXPECT_TRUE(Close(file));
        if (!broken) {
            EXPECT_EQ(Problems("F", options), "");
        }
    }

    // The errors that are counted for the process, the volume and the file alike.
    using Counts = std::array<std::array<uint32_t, 6>, 3>;

    static Counts CountsOf(uint32_t file) {
        Counts counts{};
        const qx::CounterSet* levels[] = {&qx::theProcessCounters, &Record(file).Volume.Counters,
                                          &Record(file).Counters};
        for (size_t i = 0; i < counts.size(); ++i) {
            size_t at = 0;
            for (const Counter counter :
                 {Counter::ReadErrors, Counter::WriteErrors, Counter::VolumeFullErrors, Counter::GfeLinkErrors,
                  Counter::GfeRecordTruncatedErrors, Counter::GfeRecordTerminationErrors}) {
                counts[i][at++] = levels[i]->Value(counter);
            }
        }
        return counts;
    }

    // Failed flushes are write errors only inside of an update.
    static void CompareCounts(const Counts& before, const Counts& after, Call at, uint32_t code) {
        for (size_t level = 0; level < before.size(); ++level) {
            std::array<uint32_t, 6> change{};
            for (size_t i = 0; i < change.size(); ++i) {
                change[i] = after[level][i] - before[level][i];
            }
            EXPECT_EQ(change[1], at == Call::Flush ? std::min(change[1], 1U) : code == 103 || code == 104 ? 1U : 0U);
            EXPECT_EQ(change[2], code == 103 ? 1U : 0U);
            EXPECT_LE(change[0], code == 107 ? 1U : 0U);
            EXPECT_EQ(change[3] + change[4] + change[5], 0U);
        }
    }

    // Trials.
    static Trial Writing(const std::string& key, const std::string& data) {
        Trial trial;
        trial.Work = [=](uint32_t file, StatusRecord* status) {
            Buffer(kKey) = key;
            Buffer(kData) = data;
            return QXWriteRecord(file, kKey, kData, status);
        };
        trial.Key = key;
        trial.After = data;
        return trial;
    }

    static Trial Deleting(const std::string& key) {
        Trial trial;
        trial.Work = [=](uint32_t file, StatusRecord* status) {
            Buffer(kKey) = key;
            return QXDeleteRecord(file, kKey, status);
        };
        trial.Key = key;
        return trial;
    }

    static Trial Reading(const std::string& key, const std::string& data) {
        Trial trial;
        trial.Work = [=](uint32_t file, StatusRecord* status) {
            Buffer(kKey) = key;
            const int32_t result = QXReadRecord(file, kKey, kData, status);
            EXPECT_TRUE(result == 0 || Buffer(kData) == data);
            return result;
        };
        return trial;
    }

    static Trial Doing(std::function<int32_t(uint32_t, StatusRecord*)> work) {
        Trial trial;
        trial.Work = std::move(work);
        return trial;
    }

    FakeTime Time;
    FileBytes bytes_;
    Records records_;
    size_t torn_ = 0;  // bytes that a failing transfer moves all the same
    bool delivered_ = false;
    Call at_ = Call::Exists;
    uint64_t tried_ = 0;
    uint64_t broken_ = 0;
    const std::vector<std::string> keys_ = KeysOf(kGroup, kModulo, 40);
};

TEST_F(FailureSweep, GroupsOfOneFrame) {
    Build([&](uint32_t file) {
        for (int i = 0; i < 3; ++i) {
            ASSERT_TRUE(Put(file, keys_[i], Data(10 + 10 * i)));
        }
        ASSERT_TRUE(Put(file, KeysOf(0, kModulo, 1)[0], Data(20)));
        ASSERT_TRUE(Put(file, KeysOf(2, kModulo, 1)[0], Data(20)));
    });
    Try("read", Reading(keys_[1], Data(20)));
    Try("append", Writing(keys_[5], Data(30)));
    Try("append beyond the frame", Writing(keys_[5], Data(200)));
    Try("append a long record", Writing(keys_[5], Data(1500)));
    Trial overwrite = Writing(keys_[1], std::string(20, 'n'));
    overwrite.Overwrites = true;
    Try("overwrite", overwrite);
    Try("replace the last", Writing(keys_[2], Data(50)));
    // One frame is written at once or not at all.
    Try("replace the first", Writing(keys_[0], Data(50)));
    Try("delete", Deleting(keys_[0]));
    Trial drifting = Writing(keys_[39], Data(1));
    drifting.First = [&](uint32_t file) {
        for (const std::string& key : KeysOf(2, kModulo, 21)) {
            ASSERT_TRUE(Put(file, key, ""));
        }
    };
    Try("append with the header due", drifting);
    Trial flushing = Writing(keys_[5], Data(300));
    flushing.First = [&](uint32_t file) { Record(file).Volume.Settings.FlushAllUpdates = true; };
    Try("append and flush", flushing);
    qx::Volumes().begin()->second->Settings.FlushAllUpdates = false;
    std::cout << tried_ << " trials\n";
    EXPECT_EQ(broken_, 0U);
}

TEST_F(FailureSweep, GroupsOfSeveralFrames) {
    const std::vector<size_t> lengths = {40, 1200, 60, 300, 250};
    Build([&](uint32_t file) {
        for (size_t i = 0; i < lengths.size(); ++i) {
            ASSERT_TRUE(Put(file, keys_[i], Data(lengths[i])));
        }
        ASSERT_TRUE(Put(file, KeysOf(2, kModulo, 1)[0], Data(400)));
    });
    const auto shifting = [](Trial trial) {
        trial.Shifts = true;
        return trial;
    };
    for (const size_t i : {1, 4}) {
        Try("read", Reading(keys_[i], Data(lengths[i])));
        Trial overwrite = Writing(keys_[i], std::string(lengths[i], 'n'));
        overwrite.Overwrites = true;
        Try("overwrite", overwrite);
    }
    Try("append", Writing(keys_[7], Data(20)));
    Try("append a long record", Writing(keys_[7], Data(1500)));
    Try("replace the last by a longer one", Writing(keys_[4], Data(1000)));
    Try("replace the last by a shorter one", Writing(keys_[4], Data(1)));
    Try("replace the first", shifting(Writing(keys_[0], Data(50))));
    Try("replace a long one", shifting(Writing(keys_[1], Data(1300))));
    Try("cut a long one", shifting(Writing(keys_[1], Data(5))));
    Try("delete the last", Deleting(keys_[4]));
    Try("delete the first", shifting(Deleting(keys_[0])));
    Try("delete a long one", shifting(Deleting(keys_[1])));
    std::cout << tried_ << " trials, " << broken_ << " with a broken group\n";
}

// With frames of 256 bytes frame 0 holds 62 entries, of which 31 are spilled at once; with 15 it is refilled.
TEST_F(FailureSweep, FreeListsOfSeveralFrames) {
    const auto frames = [](size_t count) { return Data(count * (kFrameSize - 14) - 100); };
    const std::string other = KeysOf(2, kModulo, 1)[0];
    const auto build = [&](size_t freeFrames, size_t taken) {
        Build([&](uint32_t file) {
            ASSERT_TRUE(Put(file, other, frames(freeFrames)));
            ASSERT_TRUE(Put(file, keys_[0], Data(400)));
            ASSERT_TRUE(Put(file, keys_[1], Data(700)));
            ASSERT_TRUE(Erase(file, other));
            ASSERT_TRUE(taken == 0 || Put(file, other, frames(taken)));
        });
    };
    build(61, 0);
    Try("spill", Deleting(keys_[1]));
    build(61 + 31, 0);
    Try("spill into a list frame", Deleting(keys_[1]));
    build(61 + 31, 48);
    Try("refill", Writing(keys_[2], Data(300)));
    Try("refill and replace", Writing(keys_[1], Data(2000)));
    Build([&](uint32_t file) { ASSERT_TRUE(Put(file, keys_[0], frames(140))); });
    Try("free everything", Deleting(keys_[0]));
    std::cout << tried_ << " trials\n";
}

TEST_F(FailureSweep, FileCalls) {
    Build([&](uint32_t file) {
        ASSERT_TRUE(Put(file, keys_[0], Data(100)));
        ASSERT_TRUE(Put(file, keys_[1], Data(700)));
        ASSERT_TRUE(Put(file, KeysOf(2, kModulo, 1)[0], Data(400)));
    });
    const auto drift = [&](uint32_t file) {
        ASSERT_TRUE(Put(file, keys_[2], Data(1000)));
        ASSERT_TRUE(Erase(file, keys_[2]));
        ASSERT_TRUE(Put(file, KeysOf(2, kModulo, 2)[1], Data(1)));
    };
    Try("header", Doing([](uint32_t file, StatusRecord* status) { return QXGetFileHeader(file, nullptr, status); }));
    Try("group number", Doing([](uint32_t file, StatusRecord* status) {
            uint32_t group = 0;
            Buffer(kKey) = "k";
            return QXGetGroupNumber(file, kKey, &group, status);
        }));
    Trial flush = Doing([&](uint32_t, StatusRecord* status) { return QXFlush(Session, status); });
    flush.First = drift;
    Try("flush", flush);
    for (const uint32_t group : {1U, 0xFFFFFFFEU}) {
        Trial lock = Doing([=](uint32_t file, StatusRecord* status) { return QXLockGroup(file, group, 1, status); });
        lock.First = [&](uint32_t file) {
            drift(file);
            lock.Undo = [=] { EXPECT_EQ(QXUnlockGroup(file, group, nullptr), 1); };
        };
        Try("lock", lock);
    }
    Trial clear = Doing([](uint32_t file, StatusRecord* status) { return QXClearFile(file, status); });
    clear.Empties = true;
    Try("clear and keep the groups", clear);
    bytes_.Primary[20] = 0;
    Try("clear and drop the groups", clear);
    bytes_.Primary[20] = 2;
    Trial close = Doing([](uint32_t file, StatusRecord* status) { return QXCloseFile(file, status); });
    close.First = drift;
    close.Closes = true;
    Try("close", close);
    Trial open = Doing([&](uint32_t, StatusRecord* status) {
        uint32_t again = kNone;
        const int32_t result = QXOpenFile(Session, kName, nullptr, &again, status);
        return result == 0 ? 0 : QXCloseFile(again, status);
    });
    Try("open again", open);
    std::cout << tried_ << " trials\n";
}

// A frame that is only written in part.
TEST_F(FailureSweep, TornWrites) {
    Build([&](uint32_t file) {
        for (int i = 0; i < 3; ++i) {
            ASSERT_TRUE(Put(file, keys_[i], Data(10 + 10 * i)));
        }
    });
    for (const size_t torn : {1, 20, 100, 255}) {
        torn_ = torn;
        Try("append", Writing(keys_[5], Data(30)));
        Try("append beyond the frame", Writing(keys_[5], Data(200)));
        Try("append a long record", Writing(keys_[5], Data(1500)));
        Trial overwrite = Writing(keys_[1], std::string(20, 'n'));
        overwrite.Overwrites = true;
        Try("overwrite", overwrite);
        Try("replace the last", Writing(keys_[2], Data(50)));
    }
    std::cout << tried_ << " trials\n";
}

TEST_F(FailureSweep, NamedCalls) {
    const auto remove = [&] {
        std::filesystem::remove(Path("F") + ".LK");
        std::filesystem::remove(Path("F") + ".OV");
    };
    const auto exists = [&](const char* extension) { return std::filesystem::exists(Path("F") + extension); };
    TryNamed(
        "create",
        [&] {
            remove();
            WriteWholeFile(Path("F") + ".OV", "left by somebody");
        },
        [&](StatusRecord* status) {
            const CreateOptions options = FixedFile(kModulo, kFrameSize);
            return QXCreateFile(Session, kName, &options, status);
        },
        [&](bool good) {
            EXPECT_EQ(exists(".LK"), good);
            EXPECT_TRUE(good || Create("F"));
            EXPECT_EQ(Problems("F"), "");
        });
    // A test for the file that says no by mistake must not cost it anything.
    EachFailure("create again", [&](uint64_t nth, SystemError error) {
        OpenSession();
        remove();
        const uint32_t made = CreateAndOpen("F", FixedFile(1, kFrameSize));
        EXPECT_TRUE(Put(made, "k", Data(1000)));
        EXPECT_TRUE(Close(made));
        const FileBytes bytes = ReadHashedFile(Path("F"));
        Faults.FailAny(nth, error);
        EXPECT_FALSE(Run([&](StatusRecord* status) { return QXCreateFile(Session, kName, nullptr, status); }));
        delivered_ = Faults.Delivered();
        at_ = Faults.DeliveredCall();
        Faults.Clear();
        EXPECT_EQ(ReadHashedFile(Path("F")), bytes);
        CloseSession();
        return delivered_;
    });
    TryNamed(
        "delete",
        [&] {
            remove();
            EXPECT_TRUE(Close(CreateAndOpen("F")));
        },
        [&](StatusRecord* status) { return QXDeleteFile(Session, kName, status); },
        [&](bool good) {
            EXPECT_EQ(exists(".LK"), !good);
            EXPECT_TRUE(good || Delete("F"));
            EXPECT_FALSE(exists(".LK"));
            EXPECT_TRUE(!exists(".OV") || at_ == Call::Exists) << "an overflow file that was not seen stays";
        });
    uint32_t file = kNone;
    TryNamed(
        "open",
        [&] {
            remove();
            EXPECT_TRUE(Create("F"));
            file = kNone;
        },
        [&](StatusRecord* status) { return QXOpenFile(Session, kName, nullptr, &file, status); },
        [&](bool good) {
            EXPECT_EQ(file != kNone, good);
            EXPECT_TRUE(!good || Close(file));
            EXPECT_TRUE(Put(Open("F"), "k", "d"));
        });
    TryNamed(
        "close the session",
        [&] {
            remove();
            const uint32_t first = CreateAndOpen("F");
            Open("F");
            EXPECT_TRUE(Put(first, "k", Data(2000)));
        },
        [&](StatusRecord* status) { return QXCloseSession(Session, status); },
        [&](bool) {
            EXPECT_EQ(OpenParts(), 0);
            OpenSession();
            EXPECT_EQ(Get(Open("F"), "k"), Data(2000));
        });
    std::cout << tried_ << " trials\n";
}

// A mutex or a group that somebody has, and no wait event to wait for it with.
class NoWaitEvent : public FileTest {
  protected:
    template <class Function>
    void ExpectRefusal(Function&& call, const Status& status, Counter counter) {
        const uint32_t before = CountOf(counter);
        const uint32_t events = Held().TakenEvents;
        Faults.Fail(Call::EventCreate, 1);
        Faults.Fail(Call::EventReset, 1);
        EXPECT_FALSE(Run(call));
        EXPECT_TRUE(Faults.Delivered());
        Faults.Clear();
        EXPECT_EQ(LastStatus(), status);
        EXPECT_EQ(CountOf(counter), before + 1);
        EXPECT_EQ(Held().TakenEvents, events);
    }

    template <class Calls>
    void ExpectRefusals(qx::ClaimMutex& mutex, const Calls& calls) {
        qx::ClaimMutex::Node node;
        ASSERT_TRUE(mutex.TryClaim(node));
        for (const auto& call : calls) {
            ExpectRefusal(call, {1028, 0, 0}, Counter::ClaimMutexInitSuspendErrors);
        }
        mutex.Release(node);
    }

    // Only a file that is shut needs its mutex.
    template <class Calls>
    void ExpectRefusals(qx::CachedFile& file, const Calls& calls) {
        ASSERT_TRUE(file.Shut());
        ExpectRefusals(file.Mutex, calls);
    }
};

TEST_F(NoWaitEvent, EveryClaimIsRefused) {
    const uint32_t file = CreateAndOpen("F", FixedFile(1, 256));
    ASSERT_TRUE(Put(file, "small", "1"));
    ASSERT_TRUE(Put(file, "long", Data(1000)));
    ASSERT_TRUE(Create("OTHER"));
    const FileBytes bytes = ReadHashedFile(Path("F"));
    using Calls = std::vector<std::function<int32_t(StatusRecord*)>>;
    uint32_t ignored = 0;
    const auto name = [&](const char* which) { return Buffer(kName) = Path(which), kName; };
    const auto key = [&](const char* which) { return Buffer(kKey) = which, kKey; };
    const Calls onApi = {
        [&](StatusRecord* status) { return QXOpenSession(TestCallback, nullptr, &ignored, status); },
        [&](StatusRecord* status) { return QXFlush(Session, status); },
        [&](StatusRecord* status) { return QXCreateFile(Session, name("NEW"), nullptr, status); },
        [&](StatusRecord* status) { return QXOpenFile(Session, name("F"), nullptr, &ignored, status); },
        [&](StatusRecord* status) { return QXDeleteFile(Session, name("OTHER"), status); },
        [&](StatusRecord* status) { return QXCloseFile(file, status); },
        [&](StatusRecord* status) { return QXCloseSession(Session, status); },
    };
    ExpectRefusals(qx::theLibrary.ApiMutex, onApi);
    const Calls onPrimary = {
        [&](StatusRecord* status) { return QXReadRecord(file, key("small"), kData, status); },
        [&](StatusRecord* status) { return QXWriteRecord(file, key("small"), kData, status); },
        [&](StatusRecord* status) { return QXDeleteRecord(file, key("small"), status); },
        [&](StatusRecord* status) { return QXClearFile(file, status); },
        [&](StatusRecord* status) { return QXGetFileHeader(file, nullptr, status); },
        [&](StatusRecord* status) { return QXLockGroup(file, 0, 1, status); },
        [&](StatusRecord* status) { return QXLockGroup(file, 0xFFFFFFFE, 1, status); },
        [&](StatusRecord* status) { return QXFlush(Session, status); },
    };
    ExpectRefusals(Record(file).PrimaryPart.Cached, onPrimary);
    const Calls onOverflow = {
        [&](StatusRecord* status) { return QXReadRecord(file, key("long"), kData, status); },
        [&](StatusRecord* status) { return QXDeleteRecord(file, key("long"), status); },
        [&](StatusRecord* status) { return QXLockGroup(file, 0, 1, status); },
        [&](StatusRecord* status) { return QXLockGroup(file, 0xFFFFFFFE, 1, status); },
    };
    ExpectRefusals(Record(file).OverflowPart.Cached, onOverflow);
    const Calls onStructure = {
        [&](StatusRecord* status) { return QXClearFile(file, status); },
        [&](StatusRecord* status) { return QXLockGroup(file, 0xFFFFFFFE, 1, status); },
    };
    ExpectRefusals(Record(file).StructureMutex, onStructure);
    ExpectNothingHeld();
    EXPECT_EQ(ReadHashedFile(Path("F")).Overflow, bytes.Overflow);
    EXPECT_EQ(Get(file, "long"), Data(1000));
    EXPECT_TRUE(Close(file));
    EXPECT_EQ(Problems("F"), "");
}

TEST_F(NoWaitEvent, EveryClaimOfLocksIsRefused) {
    const uint32_t file = CreateAndOpen("F");
    ASSERT_TRUE(Run([&](StatusRecord* status) { return QXSharedLockFile(file, status); }));
    Buffer(kKey) = "K";
    std::vector<std::function<int32_t(StatusRecord*)>> calls = {
        [&](StatusRecord* status) { return QXExclusiveLockFile(file, status); },
        [&](StatusRecord* status) { return QXUnlockFile(file, status); },
        [&](StatusRecord* status) { return QXExclusiveLockRecord(file, kKey, status); },
        [&](StatusRecord* status) { return QXUnlockRecord(file, kKey, status); },
        [&](StatusRecord* status) { return QXUnlockAll(Session, status); },
        [&](StatusRecord* status) {
            return QXGetStatistics(Session, kSessionReport, kName, Session, 0, kReportNames, kReportValues, status);
        },
    };
    ExpectRefusals(qx::theLibrary.Sessions.PayloadOf<qx::SessionRecord>(Session)->LockMutex, calls);
    for (const auto& [kind, subject] : {std::pair{kFileReport, 0U}, {kHandleReport, file}}) {
        calls.emplace_back([&, kind = kind, subject = subject](StatusRecord* status) {
            return QXGetStatistics(Session, kind, kName, subject, 0, kReportNames, kReportValues, status);
        });
    }
    ExpectRefusals(Record(file).Locks.Mutex, calls);
    EXPECT_TRUE(Run([&](StatusRecord* status) { return QXUnlockFile(file, status); })) << "still held";
    ExpectNothingHeld();
}

TEST_F(NoWaitEvent, EveryGroupLockIsRefused) {
    const uint32_t file = CreateAndOpen("F", FixedFile(2, 256));
    const std::string ours = KeysOf(1, 2, 1)[0];
    ASSERT_TRUE(Put(file, ours, "1"));
    const FileBytes bytes = ReadHashedFile(Path("F"));
    struct Case {
        uint32_t Group;
        std::function<int32_t(StatusRecord*)> Call;
    };
    const auto write = [&](StatusRecord* status) {
        Buffer(kKey) = ours;
        Buffer(kData) = Data(1000);
        return QXWriteRecord(file, kKey, kData, status);
    };
    const Case cases[] = {
        {1,
         [&](StatusRecord* status) {
             Buffer(kKey) = ours;
             return QXReadRecord(file, kKey, kData, status);
         }},
        {1, write},
        {0xFFFFFFFF, write},
        {0, [&](StatusRecord* status) { return QXGetFileHeader(file, nullptr, status); }},
        {0, [&](StatusRecord* status) { return QXClearFile(file, status); }},
        {1, [&](StatusRecord* status) { return QXLockGroup(file, 1, 1, status); }},
    };
    for (const auto& [group, call] : cases) {
        qx::GroupLockRequest theirs;
        ASSERT_TRUE(Record(file).GroupLocks.Lock(theirs, group, true, {}));
        ExpectRefusal(call, {1015, 0, 0}, Counter::GroupLockInitSuspendErrors);
        for (const qx::CounterSet* level : {&Record(file).Counters, &Record(file).Volume.Counters}) {
            EXPECT_GE(level->Value(Counter::GroupLockInitSuspendErrors), 1U);
        }
        Record(file).GroupLocks.Unlock(theirs, {});
        ExpectNothingHeld();
        EXPECT_EQ(ReadHashedFile(Path("F")).Primary.substr(256), bytes.Primary.substr(256));
    }
    EXPECT_EQ(Get(file, ours), "1");
}

}  // namespace
}  // namespace qx_test
