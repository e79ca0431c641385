#include "records/resize_room.h"

#include "storage/layout/frame_header.h"

namespace qx {

namespace {

uint32_t ChainLength(OperationContext& context, uint32_t group) {
    InputCursor& input = context.Input;
    input.Group = group;
    input.ReadPrimaryFrame(ShortRead::Fail);
    while (ForwardLink(input.Buffer) != 0) {
        input.NextFrame();
    }
    return input.Place.FramesTaken;
}

// Without an overflow file there is none to take room in: a step that needs one makes it.
void ReserveOverflow(OperationContext& context, uint32_t frames) {
    StatusRecord ignored{};
    const bool attached = RunCatching(ignored, [&] {
        context.AttachOverflow(OverflowAttachment::Missing::Fail);
        return true;
    });
    if (attached) {
        ReserveFrames(context, WhichFile::Overflow, context.OverflowFrames(), frames);
    }
}

}  // namespace

// At worst every record moves.
void TakeRoomForExpand(OperationContext& context, const ResizeGroups& sources) {
    ReserveFrames(context, WhichFile::Primary, context.File.Modulo, 1);
    uint32_t frames = sources.Count() - 1;
    for (uint32_t i = 0; i < sources.Count(); ++i) {
        frames += ChainLength(context, sources[i]);
    }
    if (frames > 0) {
        ReserveOverflow(context, frames + 1);
    }
}

// The groups share the records, and each may need a frame that it does not fill.
void TakeRoomForContract(OperationContext& context, uint32_t removed, const ResizeGroups& targets) {
    ReserveOverflow(context, ChainLength(context, removed) + targets.Count() + 2);
}

}  // namespace qx
