// What splitting and merging share: several groups written at once, record by record.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "records/group_rule.h"
#include "storage/operation_context.h"

namespace qx {

// One of the groups being written: the place where its stream goes on, and the bytes that it uses.
struct ResizeWriter {
    OutputPlace Place;
    uint64_t OldBytes = 0;
    uint64_t NewBytes = 0;

    // Copies the record under the cursor, whose header and key it has passed, from its `start`.
    void CopyRecord(OperationContext& context, const FramePlace& start);

    void Finish(OperationContext& context);

    // Counts the group's new bytes in the file's load instead of the old ones, or takes that back.
    void Account(OperationContext& context) const;
    void TakeBack(OperationContext& context) const;
};

// The groups that a split takes records from, or a merge gives them back to: the first one and every 2^Level-th after
// it.
class ResizeGroups {
  public:
    // Of the step between `modulo` and `modulo` + 1 groups.
    explicit ResizeGroups(uint32_t modulo);

    uint32_t Count() const { return count_; }
    uint32_t operator[](uint32_t index) const { return first_ + (index << level_); }

    // Which of them `group` is, if any.
    std::optional<uint32_t> IndexOf(uint32_t group) const;

  private:
    uint32_t first_ = 0;
    uint32_t count_ = 1;
    uint32_t level_ = 0;
};

// The group locks of a step: those groups and the one that comes or goes, in increasing order, without group 0, which
// the header lock covers.
class ResizeLocks {
  public:
    ResizeLocks(OperationContext& context, const ResizeGroups& groups, uint32_t lastGroup);
    // The free-frame list is unlocked first.
    ~ResizeLocks() { context_.AllocationLock.Release(); }
    ResizeLocks(const ResizeLocks&) = delete;
    ResizeLocks& operator=(const ResizeLocks&) = delete;

    // Gives up one group's lock; group 0 stays locked.
    void Release(uint32_t group);

  private:
    struct Slot {
        explicit Slot(OperationContext& context) : Lock(context.File, context.Levels) {}
        uint32_t Group = 0;
        GroupLockSlot Lock;
    };

    void Take(uint32_t group);

    OperationContext& context_;
    Slot slots_[4];
    uint32_t taken_ = 0;
};

// Reads the header of the record under the cursor and its key, and returns the key's hash.
uint32_t HashRecord(InputCursor& input);

// Whether a record in `group` is what a step that failed or was broken off has left there: it belonged there with fewer
// groups, and it is in another one that it has been looked for and changed since.
bool IsLeftBehind(uint32_t hash, uint32_t group, const ModuloSplit& split);

// Writes the stamp of a group alone.
void WriteStamp(OperationContext& context, uint32_t group, uint32_t modulo);

// Rewrites a group with those of its records that `stays` is true for, which the split of `modulo` is passed to, and
// with `modulo` as its stamp. It keeps its chain and is never ahead of the cursor, so it only overwrites frames that
// have been read.
using StayRule = bool (*)(uint32_t hash, uint32_t group, const ModuloSplit& split);
void RewriteGroup(OperationContext& context, uint32_t group, uint32_t modulo, StayRule stays);

// Sets the number of groups and writes the header; the old number stays if that fails.
void StoreModulo(OperationContext& context, uint32_t modulo);

// The file must be flushed after a step if its volume asks for that.
void FlushAfterResize(OperationContext& context);

}  // namespace qx
