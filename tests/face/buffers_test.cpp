// The buffer objects behind the C++ face, under threads.

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <gtest/gtest.h>
#include <qx.hpp>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "support/test_library.h"

namespace {

using qx::face_detail::CallBuffers;
using qx::face_detail::ServeBuffer;

struct Served {
    std::int32_t Result = 0;
    std::uint32_t Length = 0;
    void* Address = nullptr;
    StatusRecord Status{};
};

Served Serve(std::uint32_t operation, std::uint32_t buffer, std::uint32_t length = 0) {
    Served served;
    served.Result = ServeBuffer(operation, buffer, length, &served.Length, &served.Address, &served.Status);
    return served;
}

TEST(FaceBuffers, AListThatComesAsAWholeIsCutAtItsDelimiters) {
    using Keys = std::vector<std::string>;
    const std::pair<std::string, Keys> cases[] = {{"", {}},
                                                  {"a\xFE", {"a"}},
                                                  {"a\xFE\xFE"
                                                   "bc\xFE",
                                                   {"a", "", "bc"}},
                                                  {"a\xFE"
                                                   "b",
                                                   {"a", "b"}}};
    qx::face_detail::KeyList list;
    for (const auto& [bytes, expected] : cases) {
        list.Clear();
        CallBuffers buffers;
        const Served served = Serve(2, buffers.Output(list), static_cast<std::uint32_t>(bytes.size()));
        ASSERT_EQ(served.Result, 1);
        std::copy(bytes.begin(), bytes.end(), static_cast<char*>(served.Address));
        Keys keys;
        std::string_view key;
        while (list.TakeNext('\xFE', key)) {
            keys.emplace_back(key);
        }
        EXPECT_EQ(keys, expected);
    }
}

TEST(FaceBuffers, NonsenseIsRefused) {
    CallBuffers buffers;
    const std::uint32_t input = buffers.Input("key");
    std::string target;
    const std::uint32_t output = buffers.Output(target);
    const struct {
        std::uint32_t Operation;
        std::uint32_t Buffer;
    } cases[] = {{0, 0xFFFFFFFF}, {0, 0x7FFFFFFF}, {1, input}, {2, input}, {3, output}};
    for (const auto& [operation, buffer] : cases) {
        const Served served = Serve(operation, buffer, 1);
        EXPECT_EQ(served.Result, 0) << operation << " on " << buffer;
        EXPECT_EQ(served.Status.Code, 160u);
    }
    EXPECT_EQ(Serve(0, input).Length, 3u);
}

TEST(ConcurrentFace, ABufferIsFoundFromAnyThread) {
    std::string target;
    CallBuffers buffers;
    const std::uint32_t input = buffers.Input("from here");
    const std::uint32_t output = buffers.Output(target);
    std::thread([&] {
        const Served got = Serve(0, input);
        ASSERT_EQ(got.Result, 1);
        const Served made = Serve(2, output, got.Length);
        ASSERT_EQ(made.Result, 1);
        std::copy_n(static_cast<char*>(got.Address), got.Length, static_cast<char*>(made.Address));
    }).join();
    EXPECT_EQ(target, "from here");
}

TEST(ConcurrentFace, ThreadsHaveBuffersOfTheirOwnAndLeaveThemToOthers) {
    constexpr int kThreads = 50;
    std::vector<std::uint32_t> numbers(kThreads);
    const auto run = [&] {
        std::atomic<int> waiting{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&, i] {
                numbers[static_cast<std::size_t>(i)] = CallBuffers().Input("");
                ++waiting;
                while (waiting < kThreads) {
                    std::this_thread::yield();
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        std::sort(numbers.begin(), numbers.end());
    };
    run();
    EXPECT_EQ(std::unique(numbers.begin(), numbers.end()), numbers.end());
    const std::uint32_t highest = numbers.back();
    for (int i = 0; i < 20; ++i) {
        run();
    }
    EXPECT_LE(numbers.back(), 2 * highest + 64) << "threads that end must give their buffers back";
}

// What every record of key `key` looks like: a mixture of lengths, none of which another key has at the same time.
std::string RecordOf(const std::string& key, int version) {
    std::string record;
    for (int i = 0; i <= version % 40; ++i) {
        record += key + '/';
    }
    return record;
}

bool IsRecordOf(const std::string& key, const std::string& record) {
    for (int version = 0; version < 40; ++version) {
        if (record == RecordOf(key, version)) {
            return true;
        }
    }
    return false;
}

TEST(ConcurrentFace, ThreadsShareASessionAndAFile) {
    const qx_test::TestDirectory directory;
    qx::Library library;
    qx::Session session(library);
    session.CreateFile(directory.File("A"), {.Modulo = 5, .FrameSize = 256});
    qx::File file = session.OpenFile(directory.File("A"));
    constexpr int kThreads = 6;
    constexpr int kRounds = 400;
    constexpr int kSharedKeys = 10;
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([&, number] {
            std::string into;
            for (int round = 0; round < kRounds; ++round) {
                const std::string own = "own" + std::to_string(number) + '.' + std::to_string(round % 15);
                file.Write(own, RecordOf(own, round));
                ASSERT_TRUE(file.Read(own, into));
                ASSERT_EQ(into, RecordOf(own, round));

                const std::string shared = "shared" + std::to_string((round + number) % kSharedKeys);
                file.Write(shared, RecordOf(shared, round * number));
                ASSERT_TRUE(file.Read(shared, into));
                ASSERT_TRUE(IsRecordOf(shared, into)) << into;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(file.Header().RecordCount, std::uint32_t{kThreads * 15 + kSharedKeys});
    file.Close();
    EXPECT_EQ(session.OpenFile(directory.File("A")).Read("own0.0"), RecordOf("own0.0", (kRounds - 1) / 15 * 15));
}

}  // namespace
