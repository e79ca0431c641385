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
    for (uint32_t i = 0; i < targets.Count(); ++i) {
        writers[i] = StartTarget(context, targets[i], removed, context.Buffer(kTargetBuffers[i]));
    }
    const uint32_t chain = MoveRecords(context, removed, targets, writers);
    file.Counts.ChangeAlpha(removed, file.Capped(context.Input.GroupBytes), 0);
    for (uint32_t i = 0; i < targets.Count(); ++i) {
        writers[i].Finish(context);
        writers[i].Account(context);
        locks.Release(targets[i]);
    }
    FreeChain(context, removed, chain);
    context.List.Commit();
    SetFileFrames(context, WhichFile::Primary, removed);
    file.Counts.FollowModulo(removed + 1, removed);
    locks.Release(removed);
    file.Modulo = removed;
    WriteHeader(context);
    FlushAfterResize(context);
    return true;
}

}  // namespace qx
