// Everything that can happen to an open file besides reading and writing, while threads read and write it.
#include <array>
#include <functional>
#include <gtest/gtest.h>

#include "checker/group_rule.h"
#include "concurrent/shared_file.h"
#include "support/test_seed.h"
#include "support/worker_witness.h"

namespace qx_test {
namespace {

constexpr uint32_t kSelectHold = 0xFFFFFFFE;

void RequireDone(int32_t result, const StatusRecord& status) {
    if (result == 0) {
        throw qx::Error(status);
    }
}

void LockGroup(const qx::File& file, uint32_t group, bool exclusive) {
    StatusRecord status{};
    RequireDone(QXLockGroup(file.Handle(), group, exclusive ? 1 : 0, &status), status);
}

void UnlockGroup(const qx::File& file, uint32_t group) {
    StatusRecord status{};
    RequireDone(QXUnlockGroup(file.Handle(), group, &status), status);
}

void Rest(uint32_t microseconds) {
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}

// Opens and closes sessions and handles of its own, and works through them in between.
void OpenAndClose(Crew::Member& member, SharedFile& file, Owner& owner) {
    while (member.GoOn()) {
        member.Step("opening a session and a file");
        qx::Session session(file.Library);
        qx::File first = session.OpenFile(file.Path());
        owner.Operate(first);
        member.Step("opening a second handle");
        qx::File second = session.OpenFile(file.Path());
        owner.Operate(second);
        if (member.OneIn(2)) {
            member.Step("closing a handle");
            first.Close();
            owner.Operate(second);
        }
        member.Step("closing a session");
        session.Close();
    }
}

void FlushAndAsk(Crew::Member& member, SharedFile& file) {
    const auto opened = file.OpenOwn();
    while (member.GoOn()) {
        member.AwaitShift();
        member.Step("flushing");
        opened->Session.Flush();
        member.Step("reading the header");
        const qx::HeaderValues header = opened->File.Header();
        member.Step("asking for a group");
        const uint32_t group = opened->File.GroupNumber("key");
        if (header.SizeLock >= 2 &&
            group != qx_check::GroupOf(qx_check::HashKey("key"), qx_check::SplitModulo(header.Modulo))) {
            member.Fail("the wrong group for a key");
        }
    }
}

// Works on the file by nothing but this lock while it is held, and gives it up in all ways there are. A lock has to
// wait until no call is inside the file, so those who work have to rest now and then.
void LockAndUnlock(Crew::Member& member, SharedFile& file) {
    while (member.GoOn()) {
        member.Step("opening a file to lock");
        OpenedFile opened(file.Library, file.Path());
        member.Step("locking a group");
        LockGroup(opened.File, member.Below(3), member.OneIn(2));
        if (member.OneIn(2)) {
            member.Step("locking another group instead");
            LockGroup(opened.File, member.Below(3), member.OneIn(2));
        }
        Rest(member.Below(5000));
        switch (member.Below(3)) {
            case 0:
                member.Step("unlocking a group");
                UnlockGroup(opened.File, 0);
                break;
            case 1:
                member.Step("closing a handle with a group locked");
                opened.File.Close();
                break;
            default:
                member.Step("closing a session with a group locked");
                opened.Session.Close();
                break;
        }
        member.Step("closing what is left");
    }
}

void HoldSelect(Crew::Member& member, SharedFile& file, Owner& owner) {
    while (member.GoOn()) {
        member.Step("opening a file to hold");
        OpenedFile opened(file.Library, file.Path());
        const uint32_t holds = 1 + member.Below(3);
        for (uint32_t i = 0; i < holds; ++i) {
            member.Step("taking a select hold");
            LockGroup(opened.File, kSelectHold, false);
        }
        const uint32_t modulo = opened.File.Header().Modulo;
        for (int i = 0; i < 20; ++i) {
            owner.Operate(opened.File);
        }
        if (opened.File.Header().Modulo != modulo) {
            member.Fail("the number of groups changed under a select hold");
        }
        for (uint32_t i = member.Below(2); i < holds; ++i) {
            member.Step("releasing a select hold");
            UnlockGroup(opened.File, kSelectHold);
        }
    }
}

// Walks to the end, or gives up on the way.
void WalkKeys(Crew::Member& member, SharedFile& file) {
    while (member.GoOn()) {
        member.Step("opening a file to walk");
        OpenedFile opened(file.Library, file.Path());
        for (int i = 0; i < 5; ++i) {
            member.AwaitShift();
            member.Step("walking");
            const auto walk = [&member](auto&& keys) {
                for (const std::string_view key : keys) {
                    if (key.empty() || member.OneIn(2000)) {
                        break;
                    }
                }
            };
            member.OneIn(2) ? walk(opened.File.Keys()) : walk(opened.File.ReverseKeys());
            Rest(member.Below(20'000));
        }
    }
}

// Nothing is ever wrong with the file or one of its groups.
void Verify(Crew::Member& member, SharedFile& file) {
    constexpr uint32_t kFile = 0;
    constexpr uint32_t kGroup = 1;
    constexpr uint32_t kEnd = 2;
    constexpr uint32_t kStatistics = 0;
    constexpr uint32_t kProblem = 1;
    uint32_t session = 0;
    uint32_t handle = 0;
    StatusRecord status{};
    SessionOptions sessionOptions{};
    sessionOptions.Size = sizeof sessionOptions;
    OpenOptions options{};
    options.Size = sizeof options;
    RequireDone(QXOpenSession(TestCallback, &sessionOptions, &session, &status), status);
    Buffer(kStatistics) = file.Path();
    RequireDone(QXOpenFile(session, kStatistics, &options, &handle, &status), status);
    const auto check = [&](uint32_t mode, uint32_t group) {
        RequireDone(QXVerifyGroup(handle, mode, group, kStatistics, kProblem, &status), status);
        if (!Buffer(kProblem).empty()) {
            member.Fail("mode " + std::to_string(mode) + ", group " + std::to_string(group) + ": " + Buffer(kProblem));
        }
    };
    while (member.GoOn()) {
        member.Step("verifying the file");
        check(kFile, 0);
        FileHeaderRecord header{};
        header.Size = sizeof header;
        RequireDone(QXGetFileHeader(handle, &header, &status), status);
        for (uint32_t group = 0; group < header.Modulo; ++group) {
            member.AwaitShift();
            member.Step("verifying a group");
            check(kGroup, group);
        }
        member.Step("ending the verification");
        check(kEnd, 0);
        Rest(member.Below(20'000));
    }
    RequireDone(QXCloseSession(session, &status), status);
}

class ConcurrentLife : public testing::TestWithParam<FileSettings> {
  protected:
    // Adds a thread that works on keys of its own.
    void AddOwner(const std::string& name, const std::function<void(Crew::Member&, Owner&)>& body) {
        Records& due = results_.emplace_back();
        crew_.Add(name, [&due, body, key = static_cast<char>('a' + results_.size())](Crew::Member& member) {
            Owner owner(member, std::string(1, key), 40);
            body(member, owner);
            due = owner.Due();
        });
    }

    void AddWorkers(Owner::Clears clears) {
        for (int i = 0; i < 3; ++i) {
            AddOwner("worker " + std::to_string(i),
                     [opened = file_.Join(), clears](Crew::Member& member, Owner& owner) {
                         for (int turn = 0; member.GoOn(); ++turn) {
                             owner.Follow(turn % 6 < 3 ? Owner::Tide::Rising : Owner::Tide::Falling);
                             for (int j = 0; j < 200; ++j) {
                                 owner.Operate(opened->File, clears);
                             }
                             Rest(500);
                         }
                     });
        }
    }

    void AddClearer() {
        crew_.Add("clearer", [this](Crew::Member& member) {
            const auto opened = file_.OpenOwn();
            while (member.GoOn()) {
                member.AwaitShift();
                member.Step("clearing");
                opened->File.Clear();
                Rest(member.Below(200'000));
            }
        });
    }

    Records Due() const {
        Records due;
        for (const Records& records : results_) {
            due.insert(records.begin(), records.end());
        }
        return due;
    }

    const uint64_t seed_ = TestSeed();
    SharedFile file_{GetParam()};
    std::list<Records> results_;
    Crew crew_{seed_};
};

TEST_P(ConcurrentLife, LocksHoldsAndWalks) {
    crew_.WorkInShifts();
    AddWorkers(Owner::Clears::No);
    AddOwner("opener", [this](Crew::Member& member, Owner& owner) { OpenAndClose(member, file_, owner); });
    AddOwner("holder", [this](Crew::Member& member, Owner& owner) { HoldSelect(member, file_, owner); });
    crew_.Add("flusher", [this](Crew::Member& member) { FlushAndAsk(member, file_); });
    crew_.Add("locker 0", [this](Crew::Member& member) { LockAndUnlock(member, file_); });
    crew_.Add("locker 1", [this](Crew::Member& member) { LockAndUnlock(member, file_); });
    crew_.Add("walker", [this](Crew::Member& member) { WalkKeys(member, file_); });
    crew_.Add("verifier", [this](Crew::Member& member) { Verify(member, file_); });
    crew_.Run();
    file_.Check(Due());
}

// Nobody and nothing, the worker included, may wait for ever for anybody else.
TEST_P(ConcurrentLife, EverythingAtOnce) {
    crew_.WorkInShifts();
    AddWorkers(Owner::Clears::Yes);
    AddClearer();
    crew_.Add("walker", [this](Crew::Member& member) { WalkKeys(member, file_); });
    crew_.Add("verifier", [this](Crew::Member& member) { Verify(member, file_); });
    crew_.Add("locker", [this](Crew::Member& member) { LockAndUnlock(member, file_); });
    crew_.Run();
    WorkerWitness(file_.Library, file_.Path() + "WITNESS").AwaitTurn();
    file_.Check();
}

// The session holds one group, whichever of its threads and handles took it last.
TEST(ConcurrentGroupLock, IsGivenUpWhileItsHandleIsClosed) {
    SharedFile file({256, 3, 2});
    const SharedFile closedFile({256, 3, 2});
    Crew crew(TestSeed());
    const auto opened = file.OpenOwn();
    crew.Add("closer", [&](Crew::Member& member) {
        while (member.GoOn()) {
            member.Step("locking a group through a handle of its own");
            qx::File own = opened->Session.OpenFile(closedFile.Path());
            LockGroup(own, member.Below(3), true);
            member.Step("closing the handle");
            own.Close();
        }
    });
    crew.Add("locker", [&](Crew::Member& member) {
        while (member.GoOn()) {
            member.Step("locking a group through the common handle");
            LockGroup(opened->File, member.Below(3), member.OneIn(2));
            member.Step("unlocking it");
            UnlockGroup(opened->File, 0);
        }
    });
    crew.Run();
}

// Only the first clear of a file gives groups up, so every round has a file of its own.
TEST(ConcurrentClear, ShrinksAFileInUse) {
    const uint64_t seed = TestSeed();
    const auto end = std::chrono::steady_clock::now() + Crew::Duration();
    for (uint64_t round = 0; std::chrono::steady_clock::now() < end; ++round) {
        SharedFile file({256, 12, 0});
        Crew crew(seed + round);
        for (int i = 0; i < 3; ++i) {
            crew.Add("worker " + std::to_string(i), [&, i, opened = file.Join()](Crew::Member& member) {
                Owner owner(member, std::string(1, static_cast<char>('a' + i)), 40);
                for (int j = 0; j < 200; ++j) {
                    owner.Operate(opened->File, Owner::Clears::Yes);
                }
            });
        }
        crew.Add("clearer", [opened = file.OpenOwn()](Crew::Member& member) {
            Rest(member.Below(3000));
            member.Step("clearing");
            opened->File.Clear();
        });
        crew.Run();
        file.Check();
    }
}

INSTANTIATE_TEST_SUITE_P(Files, ConcurrentLife, testing::Values(FileSettings{256, 3, 2}, FileSettings{1024, 1, 0}));

}  // namespace
}  // namespace qx_test
