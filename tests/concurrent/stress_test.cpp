// Four processes of two threads each at one file that grows and shrinks all the time: with nobody killed, but others
// that come and go, and with one of them killed again and again.
#include <algorithm>
#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <ranges>
#include <set>
#include <sys/mman.h>
#include <thread>

#include "checker/byte_checker.h"
#include "concurrent/shared_file.h"
#include "support/held_ranges.h"
#include "support/other_process.h"
#include "support/test_seed.h"

namespace qx_test {
namespace {

constexpr size_t kProcesses = 4;
constexpr int kThreads = 2;
constexpr size_t kCounters = 8;  // records that everybody counts in

std::string CounterKey(size_t counter) {
    return "counter" + std::to_string(counter);
}

// In memory that the processes share, so that it outlives those that are killed.
struct Board {
    std::atomic<bool> Ending{false};
    std::atomic<uint64_t> Operations{0}, Walks{0}, Records{0};
    std::array<std::atomic<uint64_t>, kCounters> Begun{}, Done{};
    std::atomic<uint64_t> Refused{0};  // operations that met a group that a killed process left half written
    std::atomic<uint64_t> Lost{0};     // records that are not as their owner left them
};

class SharedBoard {
  public:
    SharedBoard() : memory_(::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (memory_ == MAP_FAILED) {
            throw std::bad_alloc();
        }
        board_ = new (memory_) Board;
    }
    ~SharedBoard() { ::munmap(memory_, sizeof(Board)); }
    SharedBoard(const SharedBoard&) = delete;
    SharedBoard& operator=(const SharedBoard&) = delete;

    Board* operator->() { return board_; }
    Board& operator*() { return *board_; }

  private:
    void* memory_;
    Board* board_;
};

enum class Kills { No, Yes };

// A thread with keys of its own, and what they hold.
class Worker {
  public:
    Worker(Crew::Member& member, qx::File& file, Board& board, std::string name, Kills kills)
        : member_(member), file_(file), board_(board), name_(std::move(name)), kills_(kills) {}

    void Work() {
        for (uint64_t turn = 0; member_.GoOn() && !board_.Ending; ++turn) {
            ++board_.Operations;
            if (member_.OneIn(2000)) {
                Walk();
            } else if (member_.OneIn(10)) {
                Count();
            } else {
                Operate(turn / 2000 % 2 == 0);
            }
        }
        for (const auto& [key, data] : Records(records_)) {
            member_.Step("reading in the end");
            Expect(key);
        }
        board_.Records += records_.size();
    }

  private:
    static constexpr uint32_t kKeys = 400;

    // False, and the key's record may be anything, when the call fails as it may on a half written group.
    template <class Call>
    bool Try(const std::string& key, Call&& call) {
        constexpr std::array<uint32_t, 6> kAllowed = {107, 125, 126, 127, 1003, 1013};
        try {
            call();
            return true;
        } catch (const qx::Error& error) {
            if (kills_ == Kills::No || std::find(kAllowed.begin(), kAllowed.end(), error.Code()) == kAllowed.end()) {
                throw;
            }
            ++board_.Refused;
            unsure_.insert(key);
            records_.erase(key);
            return false;
        }
    }

    void Lose(const std::string& what) {
        if (kills_ == Kills::No) {
            member_.Fail(what);
        }
        ++board_.Lost;
    }

    void Expect(const std::string& key) {
        std::optional<std::string> found;
        if (!Try(key, [&] { found = file_.Read(key); }) || unsure_.contains(key)) {
            return;
        }
        const auto known = records_.find(key);
        if (found.has_value() == (known != records_.end()) && (!found || *found == known->second)) {
            return;
        }
        Lose(key + " is not as it was left");
        unsure_.insert(key);
        records_.erase(key);
    }

    void Operate(bool rising) {
        const std::string key = name_ + std::to_string(member_.Below(kKeys));
        const uint32_t choice = member_.Below(100);
        if (choice < 30) {
            member_.Step("reading");
            Expect(key);
        } else if (choice < (rising ? 90u : 45u)) {
            const auto known = records_.find(key);
            const bool sameLength = known != records_.end() && member_.OneIn(2);
            const size_t length = sameLength ? known->second.size() : member_.Below(member_.OneIn(30) ? 3000 : 120);
            const std::string data(length, static_cast<char>(member_.Below(256)));
            member_.Step("writing");
            if (Try(key, [&] { file_.Write(key, data); })) {
                records_[key] = data;
                unsure_.erase(key);
            }
        } else {
            member_.Step("deleting");
            bool deleted = false;
            if (Try(key, [&] { deleted = file_.Delete(key); })) {
                if (deleted != records_.contains(key) && !unsure_.contains(key)) {
                    Lose(key + ": a delete has the wrong outcome");
                }
                records_.erase(key);
                unsure_.erase(key);
            }
        }
    }

    // Reading, adding and writing are one step for all that ask for the lock before.
    void Count() {
        const size_t counter = member_.Below(kCounters);
        const std::string key = CounterKey(counter);
        member_.Step("locking a record");
        while (!file_.TryLockRecord(key, qx::LockKind::Exclusive)) {
            if (!member_.GoOn() || board_.Ending) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
        member_.Step("counting");
        ++board_.Begun[counter];
        const bool counted =
            Try(key, [&] { file_.Write(key, std::to_string(std::stoull(file_.Read(key).value_or("0")) + 1)); });
        board_.Done[counter] += counted ? 1 : 0;
        file_.UnlockRecord(key);
    }

    // Every record of this thread is there all the time, so it comes out, and once.
    void Walk() {
        member_.Step("walking");
        std::multiset<std::string> seen;
        const bool all = Try({}, [&] {
            for (const std::string_view key : file_.Keys()) {
                if (key.starts_with(name_)) {
                    seen.emplace(key);
                }
            }
        });
        ++board_.Walks;
        for (const auto& [key, data] : records_) {
            if (all && seen.count(key) != 1) {
                Lose(key + " comes out of a walk " + std::to_string(seen.count(key)) + " times");
            }
        }
        if (all && kills_ == Kills::No) {
            EXPECT_EQ(seen.size(), records_.size());
        }
    }

    Crew::Member& member_;
    qx::File& file_;
    Board& board_;
    const std::string name_;
    const Kills kills_;
    Records records_;
    std::set<std::string> unsure_;
};

class SlowProcesses : public testing::Test {
  protected:
    SlowProcesses() {
        const qx::Library library;
        qx::Session(library).CreateFile(path_, {.FrameSize = 512});
    }

    // At work when this returns.
    std::unique_ptr<OtherProcess> Start(const std::string& name, Kills kills) {
        const uint64_t seed = seed_ + 10 * started_++;
        auto process = std::make_unique<OtherProcess>([=, this](OtherProcess::Turn& turn) {
            turn.HandOver();
            const qx::Library library;
            Crew crew(seed);
            for (int i = 0; i < kThreads; ++i) {
                const std::string own = name + '.' + std::to_string(i) + '.';
                crew.Add(own, [&, own](Crew::Member& member) {
                    OpenedFile opened(library, path_);
                    Worker(member, opened.File, *board_, own, kills).Work();
                });
            }
            crew.Run();
        });
        process->LetGo();
        return process;
    }

    void StartAll(Kills kills) {
        for (size_t i = 0; i < kProcesses; ++i) {
            processes_.push_back(Start(std::string(1, static_cast<char>('a' + i)), kills));
        }
    }

    // A process that looks at some records and is gone again.
    void Visit() {
        OtherProcess visitor([this](OtherProcess::Turn& turn) {
            turn.HandOver();
            const qx::Library library;
            OpenedFile opened(library, path_);
            size_t looks = 0;
            for (const std::string_view key : opened.File.Keys()) {
                static_cast<void>(opened.File.Read(key));
                if (++looks == 1000) {
                    break;
                }
            }
        });
        visitor.LetGo();
        EXPECT_TRUE(visitor.Finish());
    }

    void FinishAll() {
        for (const auto& process : processes_) {
            EXPECT_TRUE(process->Finish());
        }
        EXPECT_EQ(HeldRanges(directory_.File("MOXLOCKS")), std::vector<Range>{});
        std::cout << board_->Operations << " operations, " << board_->Walks << " walks" << std::endl;
    }

    const uint64_t seed_ = TestSeed();
    const TestDirectory directory_;
    const std::string path_ = directory_.File("SHARED");
    SharedBoard board_;
    std::vector<std::unique_ptr<OtherProcess>> processes_;
    uint64_t started_ = 0;
};

TEST_F(SlowProcesses, KeepTheirRecordsAndCounts) {
    StartAll(Kills::No);
    uint64_t visits = 0;
    for (const auto end = std::chrono::steady_clock::now() + Crew::Duration(); std::chrono::steady_clock::now() < end;
         ++visits) {
        Visit();
    }
    FinishAll();
    std::cout << visits << " visits" << std::endl;
    Records found;
    qx_check::Options options;
    options.allowCountDrift = true;  // a walk counts all records while other processes count theirs
    EXPECT_EQ(
        qx_check::CheckFile(path_, options,
                            [&](std::string_view key, std::string_view data, uint32_t) { found.emplace(key, data); })
            .problems,
        std::vector<std::string>{});
    uint64_t counters = 0;
    for (size_t i = 0; i < kCounters; ++i) {
        EXPECT_EQ(board_->Begun[i], board_->Done[i]);
        if (board_->Done[i] != 0) {
            ++counters;
            EXPECT_EQ(found[CounterKey(i)], std::to_string(board_->Done[i]));
        }
    }
    EXPECT_EQ(found.size(), board_->Records + counters);
    {
        const qx::Library library;
        OpenedFile opened(library, path_);
        EXPECT_EQ(std::ranges::distance(opened.File.Keys()), static_cast<std::ptrdiff_t>(found.size()));
    }
    EXPECT_EQ(qx_check::CheckFile(path_).problems, std::vector<std::string>{});
}

// What a killed process was about to write is lost to it; what the others do goes on. The groups that it was at may be
// half written, which those who come to them are told.
TEST_F(SlowProcesses, GoOnWhenOneIsKilled) {
    constexpr std::chrono::milliseconds kBetween{300};
    constexpr uint64_t kAtWork = kThreads + 2;  // groups that a process writes at once: the worker thread moves records
    StartAll(Kills::Yes);
    std::mt19937_64 random(seed_);
    uint64_t kills = 0;
    for (const auto end = std::chrono::steady_clock::now() + Crew::Duration();
         std::chrono::steady_clock::now() < end;) {
        std::this_thread::sleep_for(kBetween);
        std::unique_ptr<OtherProcess>& victim = processes_[random() % kProcesses];
        victim->Kill();
        victim = Start("after" + std::to_string(++kills), Kills::Yes);
    }
    board_->Ending = true;
    FinishAll();
    uint64_t damaged = 0;
    {
        const qx::Library library;
        OpenedFile opened(library, path_);
        const qx::FileVerification verification = opened.File.Verify();
        EXPECT_FALSE(verification.Damage()) << "problem " << verification.Damage()->Number;
        for (uint32_t group = 0; group < verification.Measures().Modulo; ++group) {
            damaged += verification.Group(group).Damage ? 1 : 0;
        }
        std::cout << verification.Measures().Modulo << " groups, ";
    }
    uint64_t miscounted = 0;
    for (size_t i = 0; i < kCounters; ++i) {
        miscounted += board_->Begun[i] - board_->Done[i];
    }
    std::cout << kills << " kills, " << damaged << " damaged groups, " << board_->Refused << " operations refused, "
              << board_->Lost << " records lost, " << miscounted << " counts broken off" << std::endl;
    qx_check::Options options;
    options.allowCountDrift = true;
    options.allowLeakedFrames = true;
    options.checkFill = false;
    const qx_check::Report report = qx_check::CheckFile(path_, options);
    for (const std::string& problem : report.problems) {
        std::cout << problem << '\n';
    }
    std::cout << report.leakedFrames << " frames leaked; " << report.header.recordCount << " records stored of "
              << report.recordCount << ", load " << report.header.alpha << " of " << report.alpha << ", "
              << report.chainFrames << " overflow frames in chains, " << report.freeFrames << " free" << std::endl;
    EXPECT_LE(damaged, kills * kAtWork);
    EXPECT_LE(board_->Lost, kills * kAtWork);
}

}  // namespace
}  // namespace qx_test
