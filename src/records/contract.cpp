#include "records/resize_room.h"
#include "records/resize_step.h"
#include "records/resize_writer.h"
#include "storage/layout/frame_header.h"
#include "storage/resize_queue.h"

namespace qx {

namespace {

constexpr uint32_t kMostTargets = 3;
constexpr uint32_t kTargetBuffers[kMostTargets] = {1, 4, 5};

// The stamp of a group whose primary frame has been left behind.
void WriteStamp(OperationContext& context, uint32_t group, uint32_t modulo) {
    uint8_t stamp[4];
    StoreLittleEndian(stamp, modulo);
    const FileResult result = OsWrite(context.HandleOf(WhichFile::Primary), context.File.FrameSize, group,
                                      kModuloStampOffset, stamp, sizeof stamp);
    if (result != FileResult::Done) {
        context.Levels.CountWork(Counter::WriteErrors);
        Raise(Code::WriteFailed, Number(WhichFile::Primary), group + 1);
    }
    context.File.PrimaryPart.Written = true;
}

// Passes over a target group to its end-of-group mark, where the stream goes on; the cursor gets another buffer.
ResizeWriter StartTarget(OperationContext& context, uint32_t target, uint32_t modulo, uint8_t* spareBuffer) {
    InputCursor& input = context.Input;
    input.Group = target;
    input.ReadPrimaryFrame(ShortRead::Fail);
    while (!input.AtEndOfGroup()) {
        input.ReadRecordHeader();
        input.SkipBytes(input.Record.KeyLength);
        input.SkipRecordData();
    }
    if (input.Place.File == WhichFile::Primary) {
        SetModuloStamp(input.Buffer, modulo);
    } else if (target != kHeaderGroup) {
        WriteStamp(context, target, modulo);
    }
    context.Output.Place.Buffer = spareBuffer;
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

// Gives a target the end back that it had, if the stream may have written over it: what lies before it there is the
// same. Without this the group would go on in a frame that has not been written, and from there anywhere.
void CutBack(OperationContext& context, const OutputPlace& end, const OutputPlace& reached) {
    const bool isBeingWritten = context.Output.Place.Group == end.Group;
    if (!isBeingWritten && reached.File == end.File && reached.Frame == end.Frame) {
        return;
    }
    uint8_t* frame = context.Input.Buffer;
    context.Input.Group = end.Group;
    ReadFrame(context, end.File, end.Frame, context.File.FrameSize, ShortRead::Fail, frame);
    SetForwardLink(frame, 0);
    SetSkipLink(frame, 0);
    frame[end.Position] = kEndOfGroup;
    std::memset(frame + end.Position + 1, context.FillCharacter(), context.File.FrameSize - end.Position - 1);
    WriteFrame(context, end.File, end.Frame, context.File.FrameSize, frame);
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
    TakeRoomForContract(context, removed, targets);
    context.Levels.CountWork(Counter::ContractModulos);
    ResizeWriter writers[kMostTargets];
    OutputPlace ends[kMostTargets];
    for (uint32_t i = 0; i < targets.Count(); ++i) {
        writers[i] = StartTarget(context, targets[i], removed, context.Buffer(kTargetBuffers[i]));
        ends[i] = writers[i].Place;
    }
    uint32_t chain = 0;
    uint32_t finished = 0;
    FirstFailure failure;
    failure.Run([&] {
        chain = MoveRecords(context, removed, targets, writers);
        file.Counts.ChangeAlpha(removed, file.Capped(context.Input.GroupBytes), 0);
        for (; finished < targets.Count(); ++finished) {
            writers[finished].Finish(context);
            writers[finished].Account(context);
            locks.Release(targets[finished]);
        }
    });
    for (uint32_t i = finished; i < targets.Count(); ++i) {
        FirstFailure ignored;
        ignored.Run([&] { CutBack(context, ends[i], writers[i].Place); });
    }
    failure.RaiseIfAny();
    // Before anything of the removed group is given up: it is still whole if the header cannot be written.
    StoreModulo(context, removed);
    FreeChain(context, removed, chain);
    context.List.Commit();
    SetFileFrames(context, WhichFile::Primary, removed);
    file.Counts.FollowModulo(removed + 1, removed);
    locks.Release(removed);
    FlushAfterResize(context);
    return true;
}

}  // namespace qx
