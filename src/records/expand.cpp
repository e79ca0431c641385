#include "records/resize_room.h"
#include "records/resize_step.h"
#include "records/resize_writer.h"
#include "storage/layout/frame_header.h"
#include "storage/resize_queue.h"

namespace qx {

namespace {

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

// Works in `buffer`, and returns the buffer that is free in its place afterwards: writing a long record swaps buffers.
uint8_t* SplitSource(OperationContext& context, uint32_t source, const ModuloSplit& split, ResizeWriter& added,
                     uint8_t* buffer) {
    InputCursor& input = context.Input;
    input.Group = source;
    input.ReadPrimaryFrame(ShortRead::Fail);
    ResizeWriter own = StartSource(context, added.Place.Group + 1, buffer);
    while (!input.AtEndOfGroup()) {
        const FramePlace start = input.Place;
        const uint32_t group = GroupOf(HashRecord(input), split);
        if (group != source && group != added.Place.Group) {
            Raise(Code::GroupMoved, 1, source);
        }
        (group == source ? own : added).CopyRecord(context, start);
    }
    own.OldBytes = input.GroupBytes;
    own.Finish(context);
    own.Account(context);
    return own.Place.Buffer;
}

}  // namespace

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
    TakeRoomForExpand(context, sources);
    context.Levels.CountWork(Counter::ExpandModulos);
    const ModuloSplit split(modulo + 1);
    file.Counts.FollowModulo(modulo, modulo + 1);
    ResizeWriter added = StartNewGroup(context, modulo);
    uint8_t* buffer = context.Buffer(4);
    for (uint32_t i = 0; i < sources.Count(); ++i) {
        buffer = SplitSource(context, sources[i], split, added, buffer);
        locks.Release(sources[i]);
    }
    added.Finish(context);
    context.List.Commit();
    added.Account(context);
    locks.Release(modulo);
    StoreModulo(context, modulo + 1);
    FlushAfterResize(context);
    return true;
}

}  // namespace qx
