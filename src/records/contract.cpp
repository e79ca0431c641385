#include "records/resize_step.h"
#include "records/resize_writer.h"
#include "storage/layout/frame_header.h"
#include "storage/resize_queue.h"

namespace qx {

namespace {

constexpr uint32_t kMostTargets = 3;
constexpr uint32_t kTargetBuffers[kMostTargets] = {1, 4, 5};

bool IsNotLeftBehind(uint32_t hash, uint32_t group, const ModuloSplit& split) {
    return !IsLeftBehind(hash, group, split);
}

// Passes over a target group to its end-of-group mark. False when it holds records that an earlier step has left there.
bool PassTarget(OperationContext& context, uint32_t target, const ModuloSplit& split) {
    InputCursor& input = context.Input;
    input.Group = target;
    input.ReadPrimaryFrame(ShortRead::Fail);
    bool clean = true;
    while (!input.AtEndOfGroup()) {
        clean = IsNotLeftBehind(HashRecord(input), target, split) && clean;
        input.SkipRecordData();
    }
    return clean;
}

// Finds a target group's end-of-group mark, where the stream goes on; the cursor gets another buffer. A record that was
// left behind would stand before the one that is about to come back, and be found in its place.
ResizeWriter StartTarget(OperationContext& context, uint32_t target, uint32_t modulo, uint8_t* spareBuffer) {
    InputCursor& input = context.Input;
    const ModuloSplit split(modulo + 1);
    context.Output.Place.Buffer = spareBuffer;
    if (!PassTarget(context, target, split)) {
        RewriteGroup(context, target, modulo + 1, IsNotLeftBehind);
        context.List.Commit();
        PassTarget(context, target, split);
    }
    if (input.Place.File == WhichFile::Primary) {
        SetModuloStamp(input.Buffer, modulo);
    }
    context.Output.TakeOver(input);
    return {context.Output.Place, input.GroupBytes, input.GroupBytes};
}

// Copies every record of the group to be removed to the target that it came from; returns the start of the group's
// chain.
uint32_t MoveRecords(OperationContext& context, uint32_t removed, const ResizeGroups& targets, ResizeWriter* writers) {
    InputCursor& input = context.Input;
    const ModuloSplit split(removed);
    input.Group = removed;
    input.ReadPrimaryFrame(ShortRead::Fail);
    const uint32_t chain = ForwardLink(input.Buffer);
    while (!input.AtEndOfGroup()) {
        const FramePlace start = input.Place;
        const std::optional<uint32_t> target = targets.IndexOf(GroupOf(HashRecord(input), split));
        if (!target) {
            Raise(Code::GroupMoved, 2, removed);
        }
        writers[*target].CopyRecord(context, start);
    }
    return chain;
}

// Where a target's primary frame has been left behind, its stamp is written by itself; group 0 has the header's.
void WriteStampApart(OperationContext& context, const OutputPlace& end, uint32_t modulo) {
    if (end.File == WhichFile::Overflow && end.Group != kHeaderGroup) {
        WriteStamp(context, end.Group, modulo);
    }
}

// Gives a target the end and the stamp back that it had: what lies before its end is the same. Without this it would
// keep copies of records that another merge gives it again, or go on in a frame that has not been written.
void CutBack(OperationContext& context, const OutputPlace& end, uint32_t modulo) {
    uint8_t* frame = context.Input.Buffer;
    context.Input.Group = end.Group;
    context.Output.Place.Group = end.Group;
    ReadFrame(context, end.File, end.Frame, context.File.FrameSize, ShortRead::Fail, frame);
    SetForwardLink(frame, 0);
    SetSkipLink(frame, 0);
    if (end.File == WhichFile::Primary) {
        SetModuloStamp(frame, modulo);
    }
    frame[end.Position] = kEndOfGroup;
    std::memset(frame + end.Position + 1, context.FillCharacter(), context.File.FrameSize - end.Position - 1);
    WriteFrame(context, end.File, end.Frame, context.File.FrameSize, frame);
    WriteStampApart(context, end, modulo);
}

void FreeChain(OperationContext& context, uint32_t owner, uint32_t frame) {
    uint8_t* buffer = context.Input.Buffer;
    while (frame != 0) {
        context.AttachOverflow(OverflowAttachment::Missing::Fail);
        ReadFrame(context, WhichFile::Overflow, frame, kOverflowHeaderLength, ShortRead::Fail, buffer);
        if (OwnerGroup(buffer) != owner) {
            context.Levels.CountWork(Counter::GfeLinkErrors);
            Raise(Code::FrameLink, Number(WhichFile::Overflow), owner + 1);
        }
        context.List.Free(frame);
        frame = ForwardLink(buffer);
    }
}

}  // namespace

// The removed group is given up last, when the header no longer counts it: a step that fails before leaves the file as
// it was.
bool Contract(OperationContext& context) {
    OpenFile& file = context.File;
    ReadHeader(context, HeaderAccess::Exclusive);
    if (!NeedsToContract(file)) {
        return false;
    }
    const uint32_t removed = file.Modulo - 1;
    const ResizeGroups targets(removed);
    ResizeLocks locks(context, targets, removed);
    if (!NeedsToContract(file)) {
        return true;
    }
    context.Levels.CountWork(Counter::ContractModulos);
    ResizeWriter writers[kMostTargets];
    OutputPlace ends[kMostTargets];
    for (uint32_t i = 0; i < targets.Count(); ++i) {
        writers[i] = StartTarget(context, targets[i], removed, context.Buffer(kTargetBuffers[i]));
        ends[i] = writers[i].Place;
    }
    ResizeWriter gone{{removed}};
    uint32_t chain = 0;
    bool accounted = false;
    FirstFailure failure;
    failure.Run([&] {
        chain = MoveRecords(context, removed, targets, writers);
        gone.OldBytes = context.Input.GroupBytes;
        for (uint32_t i = 0; i < targets.Count(); ++i) {
            WriteStampApart(context, ends[i], removed);
            writers[i].Finish(context);
        }
        context.List.Commit();
        gone.Account(context);
        for (uint32_t i = 0; i < targets.Count(); ++i) {
            writers[i].Account(context);
        }
        accounted = true;
        StoreModulo(context, removed);
    });
    if (!failure.Good()) {
        if (accounted) {
            for (uint32_t i = 0; i < targets.Count(); ++i) {
                writers[i].TakeBack(context);
            }
            gone.TakeBack(context);
        }
        FirstFailure notCut;
        for (uint32_t i = 0; i < targets.Count(); ++i) {
            notCut.Run([&] { CutBack(context, ends[i], removed + 1); });
        }
        if (!notCut.Good()) {
            // A target may go on in frames that the list on disk calls free.
            notCut.Run([&] { context.List.Commit(); });
        }
        failure.RaiseIfAny();
    }
    file.Counts.FollowModulo(removed + 1, removed);
    for (uint32_t i = 0; i < targets.Count(); ++i) {
        locks.Release(targets[i]);
    }
    // First the group's frame goes, so that nobody who knows the old number of groups finds records there; if it cannot
    // go, its stamp tells them.
    if (!failure.Run([&] { SetFileFrames(context, WhichFile::Primary, removed); })) {
        failure.Run([&] { WriteStamp(context, removed, removed); });
        failure.RaiseIfAny();
    }
    locks.Release(removed);
    FreeChain(context, removed, chain);
    context.List.Commit();
    FlushAfterResize(context);
    return true;
}

}  // namespace qx
