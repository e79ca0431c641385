// Threads that read, write and walk one file while it grows and shrinks.
#include <gtest/gtest.h>
#include <list>
#include <set>

#include "concurrent/shared_file.h"
#include "runtime/counters.h"
#include "support/test_seed.h"
#include "support/worker_witness.h"

namespace qx_test {
namespace {

// Records that stay in the file, while they are rewritten in many lengths.
class Standing {
  public:
    static constexpr uint32_t kCount = 300;

    static std::string Key(uint32_t number) { return "standing " + std::to_string(number); }
    static bool IsKey(std::string_view key) { return key.starts_with("standing"); }

    static std::string Value(Crew::Member& member, uint32_t number) {
        const std::string key = Key(number);
        const size_t length = key.size() + member.Below(member.OneIn(20) ? 2000 : 60);
        return key + std::string(length, static_cast<char>('a' + member.Below(26)));
    }

    static void Check(const Crew::Member& member, uint32_t number, const std::optional<std::string>& value) {
        const std::string key = Key(number);
        if (!value) {
            member.Fail(key + " is not found");
        }
        if (!value->starts_with(key) || value->find_first_not_of(value->back(), key.size()) != std::string::npos) {
            member.Fail(key + " reads back mixed: " + value->substr(0, 60));
        }
    }
};

// Rises and falls by turns, and goes on until it has done both and the time is up.
void FollowTheTide(Crew::Member& member, Owner& owner, qx::File& file) {
    for (bool rising = true; rising || member.GoOn(); rising = !rising) {
        owner.Follow(rising ? Owner::Tide::Rising : Owner::Tide::Falling);
        for (int i = 0; i < 2000; ++i) {
            owner.Operate(file);
        }
    }
}

// Every standing key exactly once, every other one at most once.
template <class Walk>
void CheckWalk(const Crew::Member& member, Walk&& walk) {
    std::set<std::string> keys;
    uint32_t standing = 0;
    for (const std::string_view key : walk) {
        standing += Standing::IsKey(key) ? 1 : 0;
        if (!keys.emplace(key).second) {
            member.Fail("a walk finds a key twice: " + std::string(key));
        }
    }
    if (standing != Standing::kCount) {
        member.Fail("a walk finds " + std::to_string(standing) + " of the standing keys");
    }
}

class ConcurrentGrowth : public testing::TestWithParam<FileSettings> {
  protected:
    ConcurrentGrowth() {
        const auto opened = file_.OpenOwn();
        for (uint32_t i = 0; i < Standing::kCount; ++i) {
            opened->File.Write(Standing::Key(i), Standing::Key(i) + "aaa");
        }
    }

    void AddOwners() {
        for (int i = 0; i < 2; ++i) {
            Records& due = results_.emplace_back();
            crew_.Add("owner " + std::to_string(i), [&due, i, opened = file_.Join()](Crew::Member& member) {
                Owner owner(member, std::string(1, static_cast<char>('a' + i)), 600);
                FollowTheTide(member, owner, opened->File);
                due = owner.Due();
            });
        }
    }

    void AddRewriter() {
        crew_.Add("rewriter", [opened = file_.Join()](Crew::Member& member) {
            while (member.GoOn()) {
                const uint32_t number = member.Below(Standing::kCount);
                member.Step("rewriting a standing record");
                opened->File.Write(Standing::Key(number), Standing::Value(member, number));
            }
        });
    }

    void RunAndCheck() {
        const uint32_t expands = qx::theProcessCounters.Value(qx::Counter::ExpandModulos);
        const uint32_t contracts = qx::theProcessCounters.Value(qx::Counter::ContractModulos);
        crew_.Run();
        EXPECT_GT(qx::theProcessCounters.Value(qx::Counter::ExpandModulos), expands);
        EXPECT_GT(qx::theProcessCounters.Value(qx::Counter::ContractModulos), contracts);
        size_t owned = 0;
        for (const Records& records : results_) {
            owned += records.size();
        }
        {
            const auto opened = file_.OpenOwn();
            WorkerWitness(file_.Library, file_.Path() + "WITNESS").Settle(opened->File.Handle());
            EXPECT_EQ(opened->File.Header().RecordCount, owned + Standing::kCount);
        }
        file_.Check();
    }

    const uint64_t seed_ = TestSeed();
    SharedFile file_{GetParam()};
    std::list<Records> results_;
    Crew crew_{seed_};
};

TEST_P(ConcurrentGrowth, ReadsAndWalksFindEveryRecord) {
    AddOwners();
    AddRewriter();
    crew_.Add("reader", [opened = file_.Join()](Crew::Member& member) {
        while (member.GoOn()) {
            const uint32_t number = member.Below(Standing::kCount);
            member.Step("reading a standing record");
            Standing::Check(member, number, opened->File.Read(Standing::Key(number)));
        }
    });
    for (int i = 0; i < 2; ++i) {
        crew_.Add("walker " + std::to_string(i), [this, i](Crew::Member& member) {
            qx::Session session(file_.Library);
            qx::File file = session.OpenFile(file_.Path(), {.SelectMinimumSize = i == 0 ? 0u : 1000u});
            while (member.GoOn()) {
                member.Step("walking forward");
                CheckWalk(member, file.Keys());
                member.Step("walking backward");
                CheckWalk(member, file.ReverseKeys());
                std::this_thread::sleep_for(std::chrono::milliseconds(member.Below(100)));
            }
        });
    }
    RunAndCheck();
}

INSTANTIATE_TEST_SUITE_P(Files, ConcurrentGrowth, testing::Values(FileSettings{256, 1, 0}, FileSettings{1024, 1, 0}));

}  // namespace
}  // namespace qx_test
