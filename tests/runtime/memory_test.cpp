// The record heap, work areas and the application's buffers.
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>

#include "runtime/buffer_access.h"
#include "runtime/work_area.h"
#include "support/process_set_up.h"
#include "support/test_library.h"

namespace qx_test {
namespace {

constexpr Status kNoMemory{1015, 0, 0};
constexpr Status kNoWorkArea{1014, 0, 0};
constexpr Status kRefused{160, 0, 0};

using RecordHeap = ProcessSetUp;

TEST_F(RecordHeap, BlocksAreZeroAndNoMemoryIsCounted) {
    for (int i = 0; i < 2; ++i) {
        auto* block = static_cast<char*>(qx::theRecordHeap.AllocateZeroed(100));
        EXPECT_EQ(std::string(block, 100), std::string(100, '\0'));
        std::memset(block, 0xAA, 100);
        qx::theRecordHeap.Free(block);
    }
    Platform.Fail(Call::HeapAllocate, 1);
    EXPECT_EQ(Raised([] { qx::theRecordHeap.AllocateZeroed(100); }), kNoMemory);
    EXPECT_EQ(Counted(qx::Counter::AllocateFileDataErrors), 1U);
    Platform.Fail(Call::HeapAllocate, 1);
    EXPECT_EQ(qx::theRecordHeap.Allocate(100), nullptr);
    EXPECT_EQ(Counted(qx::Counter::AllocateFileDataErrors), 0U);
}

TEST_F(RecordHeap, ARecordThatCannotBeMadeLeavesNothing) {
    struct Record {
        explicit Record(bool good) {
            if (!good) {
                throw std::bad_alloc();
            }
        }
        std::string Name = "longer than what a string keeps within itself";
    };
    EXPECT_EQ(Raised([] { qx::theRecordHeap.Make<Record>(false); }), kNoMemory);
    EXPECT_EQ(qx::theRecordHeap.BlockCount(), 1U);
    {
        const qx::OwnedRecord<Record> record(qx::theRecordHeap.Make<Record>(true));
        EXPECT_EQ(qx::theRecordHeap.BlockCount(), 2U);
    }
    std::map<int, int, std::less<>, qx::RecordHeapAllocator<std::pair<const int, int>>> map;
    map.emplace(1, 1);
    Platform.Fail(Call::HeapAllocate, 1);
    EXPECT_EQ(Raised([&] { map.emplace(2, 2); }), kNoMemory);
    EXPECT_EQ(map.size(), 1U);
    EXPECT_EQ(qx::theRecordHeap.BlockCount(), 2U);
}

class WorkArea : public ProcessSetUp {
  protected:
    // A thread starts without a block, and has given it back when it ends.
    template <class Body>
    void InThread(Body&& body) {
        std::thread(std::forward<Body>(body)).join();
        EXPECT_EQ(Platform.Held.Buffers, 0);
    }

    // Buffers allocated for an area of the size.
    uint64_t Cost(size_t size) {
        const uint64_t before = Platform.Count(Call::BufferAllocate);
        qx::WorkArea area(size);
        std::memset(area.Bytes(), 1, size);
        return Platform.Count(Call::BufferAllocate) - before;
    }
};

TEST_F(WorkArea, AThreadKeepsItsBlock) {
    InThread([&] {
        EXPECT_EQ(Cost(4096), 1U);
        EXPECT_EQ(Cost(4096), 0U);
        EXPECT_EQ(Cost(10), 0U);
        EXPECT_EQ(Cost(5000), 1U);
        EXPECT_EQ(Cost(5000), 0U);
        EXPECT_EQ(Platform.Held.Buffers, 1);
        std::thread([&] { EXPECT_EQ(Cost(10), 1U) << "another thread has another block"; }).join();
    });
}

TEST_F(WorkArea, AreasWithinAreasAndLargeOnesStandApart) {
    InThread([&] {
        {
            qx::WorkArea outer(1000);
            std::memset(outer.Bytes(), 'o', 1000);
            EXPECT_EQ(Cost(1000), 1U);
            EXPECT_EQ(Cost(1000), 1U) << "not kept";
            EXPECT_EQ(std::string(reinterpret_cast<char*>(outer.Bytes()), 1000), std::string(1000, 'o'));
            EXPECT_EQ(Platform.Held.Buffers, 1);
        }
        EXPECT_EQ(Cost(1000), 0U);
        EXPECT_EQ(Cost(size_t{64} << 20), 1U);
        EXPECT_EQ(Platform.Held.Buffers, 1) << "too large to be kept";
        EXPECT_EQ(Cost(1000), 0U);
    });
}

TEST_F(WorkArea, NoMemoryIsCountedAndLosesNothing) {
    InThread([&] {
        for (const size_t size : {size_t{1000}, size_t{2000}, size_t{64} << 20}) {
            Platform.Fail(Call::BufferAllocate, 1);
            EXPECT_EQ(Raised([&] { qx::WorkArea area(size); }), kNoWorkArea) << size;
            EXPECT_EQ(Counted(qx::Counter::AllocateTemporaryDataErrors), 1U);
            Platform.Clear();
            EXPECT_EQ(Cost(size), 1U) << size;
        }
        const qx::WorkArea outer(10);
        Platform.Fail(Call::BufferAllocate, 1);
        EXPECT_EQ(Raised([&] { qx::WorkArea area(10); }), kNoWorkArea);
    });
}

TEST(BufferAccess, ACallbackThatHandsOverNothingHasRefused) {
    const auto expectRefused = [](BufferCallback callback) {
        const qx::BufferAccess buffers(callback);
        EXPECT_EQ(Raised([&] { buffers.Get(0); }), kRefused);
        EXPECT_EQ(Raised([&] { buffers.Extend(0, 100); }), kRefused);
        EXPECT_EQ(Raised([&] { buffers.Allocate(0, 100); }), kRefused);
    };
    expectRefused(nullptr);
    expectRefused([](uint32_t, uint32_t, uint32_t, uint32_t*, void**, StatusRecord*) { return 0; });
    expectRefused([](uint32_t, uint32_t, uint32_t, uint32_t* length, void** address, StatusRecord*) {
        *length = 100;
        *address = nullptr;
        return 1;
    });
    const qx::BufferAccess tooSmall([](uint32_t, uint32_t, uint32_t, uint32_t* length, void** address, StatusRecord*) {
        static char bytes[3];
        *length = 3;
        *address = bytes;
        return 1;
    });
    EXPECT_EQ(Raised([&] { tooSmall.Extend(0, 4); }), kRefused);
    EXPECT_EQ(Raised([&] { tooSmall.Extend(0, 3); }), kNothing);
}

}  // namespace
}  // namespace qx_test
