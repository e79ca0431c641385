// What reading and writing may cost: calls to the system, and nothing else that takes time.
#include <cstddef>
#include <gtest/gtest.h>
#include <qx.hpp>
#include <string>
#include <thread>

#include "platform/platform.h"
#include "support/faulty_platform.h"
#include "support/test_library.h"

// A sanitizer has malloc and its relatives to itself.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define COUNTS_ALLOCATIONS 0
#else
#define COUNTS_ALLOCATIONS 1
#endif

namespace {

thread_local uint64_t allocations = 0;  // by the calling thread so far

}  // namespace

#if COUNTS_ALLOCATIONS

// The C library's own functions under the names that it keeps for programs that put theirs in between; operator new
// uses them too. What they hand out goes back through its free, which stays as it is.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

void* malloc(size_t size) {
    ++allocations;
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    ++allocations;
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
    ++allocations;
    return __libc_realloc(block, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    ++allocations;
    return __libc_memalign(alignment, size);
}
}

#endif

namespace qx_test {
namespace {

class CountingClock final : public qx::ClockService {
  public:
    explicit CountingClock(qx::ClockService& real) : real_(real) {}

    uint64_t MonotonicMilliseconds() override {
        ++Calls;
        return real_.MonotonicMilliseconds();
    }

    uint64_t Calls = 0;

  private:
    qx::ClockService& real_;
};

class CountingPlatform {
  public:
    CountingPlatform() : Clock(*qx::thePlatform.Clock) { qx::thePlatform.Clock = &Clock; }

    FaultyPlatform Calls;  // puts the real clock back, too
    CountingClock Clock;
};

struct Cost {
    uint64_t Reads = 0;
    uint64_t Writes = 0;
    uint64_t All = 0;  // calls of any kind, events and memory included

    friend bool operator==(const Cost&, const Cost&) = default;
    friend std::ostream& operator<<(std::ostream& to, const Cost& cost) {
        return to << cost.Reads << " reads, " << cost.Writes << " writes, " << cost.All << " calls in all";
    }
};

constexpr Cost kRead{1, 0, 1};
constexpr Cost kChange{1, 1, 2};

class RecordCost : public testing::Test {
  protected:
    RecordCost() {
        WriteWholeFile(directory_.File("MOXPARAM"), "LOCKS = NO");
        library_.emplace();
        AwaitSleepOfWorker();
        session_.emplace(*library_);
        const std::string path = directory_.File("COST");
        session_->CreateFile(path, {.Modulo = 2, .SizeLock = 2});
        file_.emplace(session_->OpenFile(path));
        into_.reserve(1000);
    }

    // Going to sleep is the last thing that it does by itself; the event for that would be counted among the calls.
    void AwaitSleepOfWorker() const {
        while (platform_.Calls.Count(Call::EventReset) == 0) {
            std::this_thread::yield();
        }
    }

    // A key of the group; each call finds another one.
    std::string KeyOf(uint32_t group) {
        for (;;) {
            std::string key = std::to_string(++lastKey_);
            if (file_->GroupNumber(key) == group) {
                return key;
            }
        }
    }

    // Does `body` once to warm up and then many times, which each cost `due` and take no memory and no look at the
    // clock.
    template <class Body>
    void Expect(const Cost& due, Body&& body) {
        constexpr uint64_t kTimes = 200;
        body();
        const Cost before = Now();
        const uint64_t clockBefore = platform_.Clock.Calls;
        const uint64_t allocationsBefore = allocations;
        for (uint64_t i = 0; i < kTimes; ++i) {
            body();
        }
        const uint64_t allocationsAfter = allocations;
        const Cost after = Now();
        EXPECT_EQ((Cost{after.Reads - before.Reads, after.Writes - before.Writes, after.All - before.All}),
                  (Cost{due.Reads * kTimes, due.Writes * kTimes, due.All * kTimes}));
        EXPECT_EQ(platform_.Clock.Calls, clockBefore);
        EXPECT_EQ(allocationsAfter, allocationsBefore);
    }

    Cost Now() const {
        const FaultyPlatform& calls = platform_.Calls;
        return {calls.Count(Call::Read), calls.Count(Call::Write), calls.CountAll()};
    }

    CountingPlatform platform_;
    TestDirectory directory_;
    std::optional<qx::Library> library_;
    std::optional<qx::Session> session_;
    std::optional<qx::File> file_;
    std::string into_;

  private:
    uint32_t lastKey_ = 0;
};

// Otherwise the expectations of no allocation would mean nothing.
TEST(AllocationCount, NoticesAllocations) {
    if (COUNTS_ALLOCATIONS == 0) {
        GTEST_SKIP() << "not counted in a sanitizer's build";
    }
    const uint64_t before = allocations;
    const std::string text(1000, 'x');
    EXPECT_EQ(allocations, before + 1) << text;
}

TEST_F(RecordCost, InAGroupOfOneFrame) {
    const std::string shortData(50, 's');
    const std::string longData(90, 'l');
    for (const uint32_t group : {0u, 1u}) {
        const std::string key = KeyOf(group);
        const std::string missing = KeyOf(group);
        file_->Write(key, shortData);
        file_->Write(KeyOf(group), shortData);
        Expect(kRead, [&] { ASSERT_TRUE(file_->Read(key, into_)); });
        Expect(kRead, [&] { ASSERT_FALSE(file_->Read(missing, into_)); });
        Expect(kRead, [&] { ASSERT_FALSE(file_->Delete(missing)); });
        Expect(kChange, [&] { file_->Write(key, shortData); });
        // In pairs, as a header that lags too far behind is written back besides.
        const Cost twice{2 * kChange.Reads, 2 * kChange.Writes, 2 * kChange.All};
        Expect(twice, [&] {
            file_->Write(key, longData);
            file_->Write(key, shortData);
        });
        Expect(twice, [&] {
            ASSERT_TRUE(file_->Delete(key));
            file_->Write(key, shortData);
        });
    }
}

// The frames of the long record are passed by without being read.
TEST_F(RecordCost, BehindALongRecord) {
    const std::string behind = KeyOf(0);
    const std::string missing = KeyOf(0);
    file_->Write(KeyOf(0), std::string(20'000, 'l'));
    file_->Write(behind, "data");
    Expect({2, 0, 2}, [&] { ASSERT_TRUE(file_->Read(behind, into_)); });
    Expect({2, 0, 2}, [&] { ASSERT_FALSE(file_->Read(missing, into_)); });
    Expect({2, 1, 3}, [&] { file_->Write(behind, "atad"); });
}

// One read for each group, whatever its records.
TEST_F(RecordCost, OfAWalk) {
    for (const uint32_t group : {0u, 1u}) {
        file_->Write(KeyOf(group), std::string(500, 'd'));
        file_->Write(KeyOf(group), std::string(20, 'd'));
    }
    std::string list;
    list.reserve(1000);
    const auto step = [&] {
        StatusRecord status{};
        qx::face_detail::CallBuffers buffers;
        ASSERT_EQ(QXReadNextKeyIdGroup(file_->Handle(), buffers.Output(list), &status), 1);
    };
    const auto end = [&] {
        StatusRecord status{};
        ASSERT_EQ(QXClearSelect(file_->Handle(), &status), 1);
    };
    Expect({2, 0, 2}, [&] {
        step();
        step();
        end();
    });
}

}  // namespace
}  // namespace qx_test
