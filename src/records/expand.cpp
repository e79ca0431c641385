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

// Copies the records of a source that move to the new group; the source stays as it is. Returns what it will come to
// without them. Records left behind, which are about to go, are taken to be in none of the file's counts: if they are,
// the file looks a little fuller than it is, and otherwise it could look too empty to grow.
ResizeWriter CopyMoving(OperationContext& context, uint32_t source, uint32_t modulo, ResizeWriter& added) {
    const ModuloSplit before(modulo);
    const ModuloSplit after(modulo + 1);
    InputCursor& input = context.Input;
    input.Group = source;
    input.ReadPrimaryFrame(ShortRead::Fail);
    const uint64_t addedBefore = added.NewBytes;
    uint64_t leftBehind = 0;
    while (!input.AtEndOfGroup()) {
        const FramePlace start = input.Place;
        const uint32_t hash = HashRecord(input);
        const uint32_t group = GroupOf(hash, after);
        if (group == source) {
            input.SkipRecordData();
        } else if (IsLeftBehind(hash, source, before)) {
            leftBehind += input.Record.TotalBytes();
            input.SkipRecordData();
        } else if (group == added.Place.Group) {
            added.CopyRecord(context, start);
        } else {
            Raise(Code::GroupMoved, 1, source);
        }
    }
    const uint64_t bytes = input.GroupBytes - leftBehind;
    const uint64_t moved = added.NewBytes - addedBefore;
    return {{source, WhichFile::Primary, source, 0, nullptr}, bytes, bytes - moved};
}

bool StaysInSource(uint32_t hash, uint32_t source, const ModuloSplit& split) {
    return GroupOf(hash, split) == source;
}

}  // namespace

// The new group is whole, and the header counts it, before the first record leaves its old group: a step that fails or
// is broken off leaves copies behind at worst, which the next step in their group drops. Without the header the file is
// cut back and as it was.
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
    ResizeWriter added = StartNewGroup(context, modulo);
    ResizeWriter left[kMostSources];
    FirstFailure failure;
    failure.Run([&] {
        for (uint32_t i = 0; i < sources.Count(); ++i) {
            left[i] = CopyMoving(context, sources[i], modulo, added);
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
    // What moved must not be found in its old place by who knows the old number of groups, if a source cannot be
    // written.
    for (uint32_t i = 0; i < sources.Count(); ++i) {
        if (sources[i] != kHeaderGroup) {
            failure.Run([&] { WriteStamp(context, sources[i], modulo + 1); });
        }
    }
    for (uint32_t i = 0; i < sources.Count(); ++i) {
        if (!failure.Run([&] { RewriteGroup(context, sources[i], modulo + 1, StaysInSource); })) {
            left[i].TakeBack(context);
        }
        locks.Release(sources[i]);
    }
    failure.Run([&] { context.List.Commit(); });
    failure.RaiseIfAny();
    FlushAfterResize(context);
    return true;
}

}  // namespace qx
