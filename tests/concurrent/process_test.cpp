// Several processes at one file: what each has written is there, and the file is without fault.
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

#include "checker/byte_checker.h"
#include "concurrent/shared_file.h"
#include "support/held_ranges.h"
#include "support/other_process.h"
#include "support/raised.h"
#include "support/test_seed.h"
#include "support/worker_witness.h"

namespace qx_test {
namespace {

constexpr uint32_t kSelectHold = 0xFFFFFFFE;

// Works on the file with two threads, in a process of its own, and leaves a list of what it should hold in the end.
void WorkAt(const std::string& path, uint64_t seed, const std::string& name, Owner::Clears clears) {
    const qx::Library library;
    Crew crew(seed);
    Records due;
    std::mutex mutex;
    for (int i = 0; i < 2; ++i) {
        crew.Add(name + std::to_string(i), [&, i](Crew::Member& member) {
            OpenedFile opened(library, path);
            Owner owner(member, name + std::to_string(i) + '.', 60);
            while (member.GoOn()) {
                owner.Operate(opened.File, clears);
                if (member.OneIn(200)) {
                    member.Step("walking");
                    for (const std::string_view key : opened.File.Keys()) {
                        (void)key;
                    }
                }
                if (clears == Owner::Clears::Yes && member.OneIn(100)) {
                    member.Step("clearing");
                    opened.File.Clear();
                }
            }
            const std::lock_guard hold(mutex);
            due.insert(owner.Due().begin(), owner.Due().end());
        });
    }
    crew.Run();
    std::ofstream list(path + "." + name, std::ios::binary);
    for (const auto& [key, data] : due) {
        list << key << ' ' << data.size() << ' ' << data << '\n';
    }
}

void ReadList(const std::string& path, Records& records) {
    std::ifstream list(path, std::ios::binary);
    std::string key;
    size_t size = 0;
    while (list >> key >> size) {
        list.get();
        std::string data(size, '\0');
        list.read(data.data(), static_cast<std::streamsize>(size));
        records.emplace(key, std::move(data));
    }
}

class ConcurrentProcesses : public testing::TestWithParam<Owner::Clears> {};

TEST_P(ConcurrentProcesses, WorkOnOneFile) {
    const TestDirectory directory;
    const std::string path = directory.File("SHARED");
    const uint64_t seed = TestSeed();
    std::vector<std::unique_ptr<OtherProcess>> processes;
    const std::vector<std::string> names = {"a", "b", "c"};
    for (size_t i = 0; i < names.size(); ++i) {
        processes.push_back(std::make_unique<OtherProcess>([&, i](OtherProcess::Turn& turn) {
            turn.HandOver();
            WorkAt(path, seed + i * 10, names[i], GetParam());
        }));
    }
    {
        const qx::Library library;
        qx::Session(library).CreateFile(path, {.FrameSize = 256});
    }
    std::vector<std::thread> waiters;
    for (const auto& process : processes) {
        waiters.emplace_back([&process] { EXPECT_TRUE(process->Finish()); });
    }
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
    Records found, due;
    qx_check::Options options;
    options.allowCountDrift = true;  // a walk counts what others count as well, and no process counts below 0
    const qx_check::Report report = qx_check::CheckFile(
        path, options, [&](std::string_view key, std::string_view data, uint32_t) { found.emplace(key, data); });
    EXPECT_EQ(report.problems, std::vector<std::string>{});
    for (const std::string& name : names) {
        ReadList(path + "." + name, due);
    }
    if (GetParam() == Owner::Clears::No) {
        EXPECT_EQ(found, due);
    } else {
        for (const auto& [key, data] : found) {
            EXPECT_TRUE(due.contains(key) && due[key] == data) << key;
        }
    }
    EXPECT_EQ(HeldRanges(directory.File("MOXLOCKS")), std::vector<Range>{});
}

INSTANTIATE_TEST_SUITE_P(, ConcurrentProcesses, testing::Values(Owner::Clears::No, Owner::Clears::Yes),
                         [](const auto& test) {
                             return test.param == Owner::Clears::Yes ? "AndClearIt" : "AndKeepIt";
                         });

TEST(ConcurrentProcess, WalksTheGroupsThatOthersHaveAdded) {
    const TestDirectory directory;
    const std::string path = directory.File("GROWING");
    constexpr int kRecords = 100;
    OtherProcess other([&](OtherProcess::Turn& turn) {
        turn.HandOver();
        const qx::Library library;
        OpenedFile opened(library, path);
        for (int i = 0; i < kRecords; ++i) {
            opened.File.Write(std::to_string(i), std::string(100, 'd'));
        }
        EXPECT_GT(WorkerWitness(library, directory.File("WITNESS")).Settle(opened.File.Handle()).Modulo, 1U);
    });
    const qx::Library library;
    { qx::Session(library).CreateFile(path, {.FrameSize = 256}); }
    OpenedFile forward(library, path);
    OpenedFile backward(library, path);
    ASSERT_EQ(backward.File.Header().Modulo, 1U);
    EXPECT_TRUE(other.Finish());
    const auto count = [](auto&& keys) {
        int found = 0;
        for (const std::string_view key : keys) {
            found += !key.empty();
        }
        return found;
    };
    EXPECT_EQ(count(backward.File.ReverseKeys()), kRecords);
    EXPECT_EQ(count(forward.File.Keys()), kRecords);
}

// One process has a lock, another one asks and is told who is in the way.
TEST(ConcurrentProcess, WaitsForOthersUntilTheTimeIsUp) {
    const TestDirectory directory;
    const std::string path = directory.File("FIXED");
    const std::string growingPath = directory.File("GROWING");
    WriteWholeFile(directory.File("MOXPARAM"), "GROUPLOCKTIMEOUT=0");
    OtherProcess other([&](OtherProcess::Turn& turn) {
        turn.HandOver();
        const qx::Library library;
        OpenedFile opened(library, path);
        const auto lock = [&](const OpenedFile& of, uint32_t group, uint32_t exclusive) {
            EXPECT_EQ(QXLockGroup(of.File.Handle(), group, exclusive, nullptr), 1);
            turn.HandOver();
            EXPECT_EQ(QXUnlockGroup(of.File.Handle(), group, nullptr), 1);
        };
        lock(opened, 2, 1);
        lock(opened, 2, 0);
        lock(opened, 0, 1);
        lock(OpenedFile(library, growingPath), kSelectHold, 0);
        turn.HandOver();
    });
    const qx::Library library;
    {
        qx::Session session(library);
        session.CreateFile(path, {.Modulo = 5, .FrameSize = 256, .SizeLock = 2});
        session.CreateFile(growingPath, {.FrameSize = 256});
    }
    OpenedFile opened(library, path);
    const auto keyOf = [&](uint32_t group) {
        for (uint32_t i = 0;; ++i) {
            const std::string key = std::to_string(i);
            if (opened.File.GroupNumber(key) == group) {
                return key;
            }
        }
    };
    const std::string key = keyOf(2);
    const std::string otherKey = keyOf(3);
    const auto failure = [](auto&& body) {
        try {
            body();
        } catch (const qx::Error& error) {
            return Status{error.Code(), error.Detail1(), error.Detail2()};
        }
        return kNothing;
    };
    const auto read = [&] { opened.File.Read(key); };
    const auto write = [&] { opened.File.Write(key, "data"); };
    const auto clear = [&] { opened.File.Clear(); };
    const Status group2{1013, 1, 2};
    const Status header{1013, 1, 0};
    EXPECT_EQ(failure(write), kNothing);

    ASSERT_TRUE(other.Continue());  // group 2 exclusively
    EXPECT_EQ(failure(read), group2);
    EXPECT_EQ(failure(write), group2);
    EXPECT_EQ(failure(clear), group2);
    EXPECT_EQ(failure([&] { opened.File.Write(otherKey, "data"); }), kNothing);
    ASSERT_TRUE(other.Continue());  // group 2 shared
    EXPECT_EQ(failure(read), kNothing);
    EXPECT_EQ(failure(write), group2);
    EXPECT_EQ(failure(clear), group2);
    ASSERT_TRUE(other.Continue());  // group 0 exclusively
    EXPECT_EQ(failure(write), kNothing);
    EXPECT_EQ(failure([&] { opened.File.Header(); }), header);
    EXPECT_EQ(failure(clear), header);
    OpenedFile growing(library, growingPath);
    for (int i = 0; i < 50; ++i) {
        growing.File.Write(std::to_string(i), std::string(100, 'd'));
    }
    const uint32_t modulo = WorkerWitness(library, directory.File("WITNESS")).Settle(growing.File.Handle()).Modulo;
    ASSERT_GT(modulo, 1U);
    ASSERT_TRUE(other.Continue());  // the number of groups of the growing file
    growing.File.Clear();
    EXPECT_EQ(growing.File.Header().Modulo, modulo) << "others rely on it";
    ASSERT_TRUE(other.Continue());
    growing.File.Clear();
    EXPECT_EQ(growing.File.Header().Modulo, 1U);
    EXPECT_TRUE(other.Finish());
}

}  // namespace
}  // namespace qx_test
