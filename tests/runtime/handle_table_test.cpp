#include "runtime/handle_table.h"

#include <random>
#include <thread>
#include <vector>

#include "runtime/handle_list.h"
#include "support/process_set_up.h"
#include "support/test_seed.h"

namespace qx_test {
namespace {

struct Payload {
    uint32_t Number = 7;
    uint32_t Zero;
    std::vector<int> Owned{1, 2, 3};  // a leak checker sees when a payload is not ended
    qx::HandleLinks FirstLinks;
    qx::HandleLinks SecondLinks;
};

class HandleTable : public ProcessSetUp {
  protected:
    ~HandleTable() override { Table.Destroy(); }

    uint32_t Opened() {
        uint32_t handle = qx::kNoHandle;
        Payload* payload = Table.Allocate<Payload>(&handle);
        EXPECT_EQ(payload->Zero, 0U);
        EXPECT_EQ(std::exchange(payload->Number, handle), 7U) << "every payload is a new one";
        payload->Zero = 99;
        Table.EndOpen(handle);
        return handle;
    }

    void Close(uint32_t handle) {
        Table.BeginClose(handle);
        Table.Free<Payload>(handle);
    }

    Status Entering(uint32_t handle) {
        return Raised([&] {
            Payload* payload = Table.Enter<Payload>(handle);
            EXPECT_EQ(payload->Number, handle);
            qx::HandleTable::Leave(payload);
        });
    }

    qx::HandleTable Table;
};

constexpr Status kNotOpen{1100, 0, 0};
constexpr Status kBeyondTheTable{1100, 0, 1};

TEST_F(HandleTable, TheNumberClosedFirstIsReusedFirst) {
    EXPECT_EQ(Entering(0), kBeyondTheTable);
    for (const uint32_t expected : {0U, 1U, 2U}) {
        EXPECT_EQ(Opened(), expected);
    }
    Close(0);
    EXPECT_EQ(Entering(0), kNotOpen);
    EXPECT_EQ(Entering(1), kNothing);
    EXPECT_EQ(Entering(3), kBeyondTheTable);
    EXPECT_EQ(Entering(qx::kNoHandle), kBeyondTheTable);
    Close(2);
    const uint64_t allocations = Platform.Count(Call::HeapAllocate);
    EXPECT_EQ(Opened(), 0U);
    EXPECT_EQ(Opened(), 2U);
    EXPECT_EQ(Platform.Count(Call::HeapAllocate), allocations) << "a record stays with its slot";
    EXPECT_EQ(Opened(), 3U);
    for (const uint32_t handle : {3U, 1U, 0U, 2U}) {
        Close(handle);
    }
    for (const uint32_t expected : {3U, 1U, 0U, 2U, 4U}) {
        EXPECT_EQ(Opened(), expected);
    }
    for (uint32_t handle = 0; handle < 5; ++handle) {
        Close(handle);
    }
}

TEST_F(HandleTable, AHandleIsUsableFromTheEndOfOpeningToTheStartOfClosing) {
    uint32_t handle = qx::kNoHandle;
    Payload* opening = Table.Allocate<Payload>(&handle);
    opening->Number = handle;
    EXPECT_EQ(Entering(handle), kNotOpen);
    EXPECT_EQ(Raised([&] { Table.BeginClose(handle); }), (Status{1102, 0, 0}));
    Table.EndOpen(handle);
    Payload* payload = Table.Enter<Payload>(handle);
    EXPECT_EQ(payload, Table.PayloadOf<Payload>(handle));
    EXPECT_EQ(Raised([&] { Table.BeginClose(handle); }), (Status{1102, 0, 0}));
    EXPECT_EQ(Entering(handle), kNothing);
    qx::HandleTable::Leave(payload);
    Table.BeginClose(handle);
    EXPECT_EQ(Entering(handle), kNotOpen);
    Table.Free<Payload>(handle);
    EXPECT_EQ(Raised([&] { Table.BeginClose(handle); }), kNotOpen);
}

TEST_F(HandleTable, WithoutMemoryThereIsNoHandleAndTheNextOneIsTheSame) {
    for (uint32_t number = 0; number < 3; ++number) {
        struct Step {
            uint64_t Nth;
            Status Left;  // what a look-up of the number then says
        };
        // The slot, unless another one has brought it along, the record, and the record again, for which the slot has
        // stayed.
        const bool chunk = number != 2;
        for (const Step& step :
             {Step{1, chunk ? kBeyondTheTable : kNotOpen}, Step{chunk ? 2U : 1U, kNotOpen}, Step{1, kNotOpen}}) {
            Platform.Fail(Call::HeapAllocate, step.Nth);
            uint32_t handle = qx::kNoHandle;
            const Status raised = Raised([&] { Table.Allocate<Payload>(&handle); });
            EXPECT_EQ(raised, (Status{1015, 0, 0}));
            EXPECT_EQ(handle, qx::kNoHandle);
            EXPECT_EQ(Counted(qx::Counter::AllocateFileDataErrors), 1U);
            EXPECT_EQ(Entering(number), step.Left);
        }
        Platform.Clear();
        EXPECT_EQ(Opened(), number);
    }
    EXPECT_EQ(Table.SlotCount(), 3U);
    for (uint32_t handle = 0; handle < 3; ++handle) {
        EXPECT_EQ(Entering(handle), kNothing);
        Close(handle);
    }
}

template <auto links>
std::vector<uint32_t> Members(qx::HandleTable& table, const qx::HandleList& list) {
    std::vector<uint32_t> members;
    for (uint32_t handle = list.Head(); handle != qx::kNoHandle; handle = qx::HandleList::Next<links>(table, handle)) {
        members.push_back(handle);
        EXPECT_LE(members.size(), table.SlotCount());
    }
    EXPECT_EQ(list.IsEmpty(), members.empty());
    return members;
}

TEST_F(HandleTable, AHandleStandsInSeveralLists) {
    using Numbers = std::vector<uint32_t>;
    qx::HandleList first;
    qx::HandleList second;
    for (uint32_t i = 0; i < 5; ++i) {
        first.Append<&Payload::FirstLinks>(Table, Opened());
    }
    for (uint32_t handle = 5; handle-- > 0;) {
        second.Append<&Payload::SecondLinks>(Table, handle);
    }
    const auto removed = [&](uint32_t handle) {
        first.Remove<&Payload::FirstLinks>(Table, handle);
        return Members<&Payload::FirstLinks>(Table, first);
    };
    const auto appended = [&](uint32_t handle) {
        first.Append<&Payload::FirstLinks>(Table, handle);
        return Members<&Payload::FirstLinks>(Table, first);
    };
    EXPECT_EQ(removed(2), (Numbers{0, 1, 3, 4}));
    EXPECT_EQ(removed(0), (Numbers{1, 3, 4}));
    EXPECT_EQ(removed(4), (Numbers{1, 3}));
    EXPECT_EQ(appended(4), (Numbers{1, 3, 4})) << "behind the last one";
    EXPECT_EQ(removed(1), (Numbers{3, 4}));
    EXPECT_EQ(removed(3), (Numbers{4}));
    EXPECT_EQ(removed(4), (Numbers{}));
    EXPECT_EQ(appended(0), (Numbers{0}));
    EXPECT_EQ(appended(2), (Numbers{0, 2}));
    EXPECT_EQ(Members<&Payload::SecondLinks>(Table, second), (Numbers{4, 3, 2, 1, 0}));
    for (uint32_t handle = 0; handle < 5; ++handle) {
        Close(handle);
    }
}

class ConcurrentHandleTable : public HandleTable {};

TEST_F(ConcurrentHandleTable, HandlesAreLookedUpWhileOthersComeAndGo) {
    const uint64_t seed = TestSeed();
    std::atomic<bool> done{false};
    std::atomic<uint32_t> entered{0};
    std::vector<std::thread> readers;
    for (const uint64_t reader : {1U, 2U}) {
        readers.emplace_back([&, reader] {
            std::mt19937_64 random(seed + reader);
            while (!done || entered == 0) {
                const auto handle = static_cast<uint32_t>(random() % 40);
                const Status status = Entering(handle);
                EXPECT_TRUE(status == kNothing || status == kNotOpen || status == kBeyondTheTable);
                entered += status == kNothing;
            }
        });
    }
    std::mt19937_64 random(seed);
    std::vector<uint32_t> open;
    for (int i = 0; i < 3000; ++i) {
        if (open.size() < 30 && (open.empty() || random() % 2 == 0)) {
            open.push_back(Opened());
            continue;
        }
        std::swap(open[random() % open.size()], open.back());
        const Status closing = Raised([&] { Close(open.back()); });
        if (closing == kNothing) {
            open.pop_back();
        } else {
            EXPECT_EQ(closing, (Status{1102, 0, 0})) << "a call is inside";
        }
    }
    if (open.empty()) {
        open.push_back(Opened());
    }
    done = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    for (const uint32_t handle : open) {
        Close(handle);
    }
}

}  // namespace
}  // namespace qx_test
