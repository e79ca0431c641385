#include "records/resize_step.h"
#include "records/resize_writer.h"
#include "storage/layout/frame_header.h"
#include "storage/resize_queue.h"

namespace qx {

namespace {

constexpr uint32_t kMostSources = 3;

// The new group's blank primary frame; its first write makes the primary file longer.
ResizeWriter StartNewGroup(OperationContext& context, uint32_t group) {
    uint8_t* frame = context.Buffer(1);
    frame[0] = kPrimaryHeaderLength;
    SetForwardLink(frame, 0);
    SetSkipLink(frame, 0);
    SetModuloStamp(frame, group + 1);
    return {{group, WhichFile::Primary, group, kPrimaryHeaderLength, frame}, 0, uint64_t{kPrimaryHeaderLength} + 1};
}

// The stream over a source group itself. It keeps the old chain and is never ahead of the cursor, so it only overwrites
// frames that have been read.
ResizeWriter StartSource(OperationContext& context, uint32_t modulo, uint8_t* frame) {
    const InputCursor& input = context.Input;
    const uint8_t headerLength = input.Buffer[0];
    std::memcpy(frame, input.Buffer, headerLength);
    SetModuloStamp(frame, modulo);
    return {{input.Group, WhichFile::Primary, input.Group, headerLength, frame}, 0, uint64_t{headerLength} + 1};
}

void FailForeign(uint32_t source) {
    Raise(Code::GroupMoved, 1, source);
}

// Copies the records of a source that move to the new group; the source stays as it is. Returns what it will come to
// without them.
ResizeWriter CopyMoving(OperationContext& context, uint32_t source, const ModuloSplit& split, ResizeWriter& added) {
    InputCursor& input = context.Input;
    input.Group = source;
    input.ReadPrimaryFrame(ShortRead::Fail);
    const uint64_t before = added.NewBytes;
    while (!input.AtEndOfGroup()) {
        const FramePlace start = input.Place;
        const uint32_t group = GroupOf(HashRecord(input), split);
        if (group == added.Place.Group) {
            added.CopyRecord(context, start);
        } else if (group == source) {
            input.SkipRecordData();
        } else {
            FailForeign(source);
        }
    }
    const uint64_t moved = added.NewBytes - before;
    return {{source, WhichFile::Primary, source, 0, nullptr}, input.GroupBytes, input.GroupBytes - moved};
}

// Rewrites a source without the records that the new group has. Works in `buffer`, and returns the buffer that is free
// in its place afterwards: writing a long record swaps buffers.
uint8_t* DropMoved(OperationContext& context, uint32_t source, uint32_t modulo, uint8_t* buffer) {
    const ModuloSplit split(modulo);
    InputCursor& input = context.Input;
    input.Group = source;
    input.ReadPrimaryFrame(ShortRead::Fail);
    ResizeWriter own = StartSource(context, modulo, buffer);
    while (!input.AtEndOfGroup()) {
        const FramePlace start = input.Place;
        if (GroupOf(HashRecord(input), split) == source) {
            own.CopyRecord(context, start);
        } else {
            input.SkipRecordData();
        }
    }
    own.Finish(context);
    return own.Place.Buffer;
}

}  // namespace

// The new group is whole, and the header counts it, before the first record leaves its old group: a step that fails or
// is broken off leaves superseded copies at worst. Without the header the file is cut back and as it was.
bool Expand(OperationContext& context) {
    OpenFile& file = context.File;
    ReadHeader(context, HeaderAccess::Exclusive);
    if (!NeedsToExpand(file)) {
        return false;
    }
    const uint32_t modulo = file.Modulo;
    const ResizeGroups sources(modulo);
    ResizeLocks locks(context, sources, modulo);
    if (!NeedsToExpand(file)) {
        return true;
    }
    context.Levels.CountWork(Counter::ExpandModulos);
    const ModuloSplit split(modulo + 1);
    ResizeWriter added = StartNewGroup(context, modulo);
    ResizeWriter left[kMostSources];
    FirstFailure failure;
    failure.Run([&] {
        for (uint32_t i = 0; i < sources.Count(); ++i) {
            left[i] = CopyMoving(context, sources[i], split, added);
        }
        added.Finish(context);
        context.List.Commit();
    });
    if (failure.Good()) {
        for (uint32_t i = 0; i < sources.Count(); ++i) {
            left[i].Account(context);
        }
        added.Account(context);
        if (!failure.Run([&] { StoreModulo(context, modulo + 1); })) {
            added.TakeBack(context);
            for (uint32_t i = 0; i < sources.Count(); ++i) {
                left[i].TakeBack(context);
            }
        }
    }
    if (!failure.Good()) {
        failure.Run([&] { SetFileFrames(context, WhichFile::Primary, modulo); });
        failure.RaiseIfAny();
    }
    file.Counts.FollowModulo(modulo, modulo + 1);
    locks.Release(modulo);
    uint8_t* buffer = context.Buffer(4);
    for (uint32_t i = 0; i < sources.Count(); ++i) {
        failure.Run([&] { buffer = DropMoved(context, sources[i], modulo + 1, buffer); });
        locks.Release(sources[i]);
    }
    failure.Run([&] { context.List.Commit(); });
    failure.RaiseIfAny();
    FlushAfterResize(context);
    return true;
}

}  // namespace qx
