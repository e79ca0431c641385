// Files on the brink of growing or shrinking by a group.
#pragma once

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "checker/file_builder.h"
#include "support/file_test.h"
#include "support/worker_witness.h"

namespace qx_test {

using Item = qx_check::Record;

inline constexpr uint32_t kSelectHold = 0xFFFFFFFE;
inline constexpr uint32_t kPrimaryHeader = 13;
inline constexpr const char* kFile = "RESIZE";

// The records of every group, in stored order.
using Groups = std::vector<std::vector<Item>>;

size_t RecordBytes(const Item& record);
uint32_t GroupOf(const std::string& key, uint32_t modulo);
Groups Distribute(const std::vector<Item>& records, uint32_t modulo);
// Bytes of a group, and what all of them count in the file's load.
uint64_t BytesOf(const Groups& groups, size_t group, const qx_check::FileShape& shape);
uint64_t LoadOf(const Groups& groups, const qx_check::FileShape& shape);

// Loads beyond which a file grows, and below which it shrinks.
uint64_t GrowLimit(const qx_check::FileShape& shape, uint32_t modulo);
uint64_t ShrinkLimit(const qx_check::FileShape& shape, uint32_t modulo);

// A step and the groups that share records with the group that comes or goes, the last one of the larger number.
struct Step {
    uint32_t From;
    uint32_t To;
    std::vector<uint32_t> Others;

    uint32_t Last() const { return std::max(From, To) - 1; }
    bool Touches(uint32_t group) const {
        return group == Last() || std::find(Others.begin(), Others.end(), group) != Others.end();
    }
};

// Frames, and the longest keys and data of the records in them.
struct Content {
    uint32_t FrameSize;
    uint32_t LongestKey;
    uint32_t LongestData;
};

// A file just short of a step and the record that sets the step off when it is written or deleted.
struct Brink {
    qx_check::FileShape Shape;
    std::vector<Item> Records;
    Item Trigger;
};

std::vector<Item> With(std::vector<Item> records, const Item& one);
Item RandomRecord(std::mt19937_64& random, const Content& content, size_t number);

// Records are added until the limit is crossed. Those that would lead to more than one step are not used.
Brink FindBrink(std::mt19937_64& random, const Step& step, const Content& content);

class ResizeTest : public FileTest {
  protected:
    ~ResizeTest() override { StopWitness(); }

    // Lets the library be stopped before the test ends.
    void StopWitness() {
        witness_.reset();
        library_.reset();
    }

    uint32_t OpenBuilt(const qx_check::FileShape& shape, const std::vector<Item>& records) {
        qx_check::BuildFile(shape, records).Save(Path(kFile));
        return Open(kFile);
    }

    WorkerWitness& Worker() {
        if (!witness_) {
            library_.emplace();
            witness_.emplace(*library_, Path("WITNESS" + std::to_string(++witnesses_)));
        }
        return *witness_;
    }

    // The number of groups once the worker has left the file.
    uint32_t Settled(uint32_t file) { return Worker().Settle(file).Modulo; }

    // Those of the file on disk, which must be without fault.
    Groups StoredGroups();

  private:
    uint32_t witnesses_ = 0;
    std::optional<qx::Library> library_;
    std::optional<WorkerWitness> witness_;
};

}  // namespace qx_test
