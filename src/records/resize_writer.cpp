#include "records/resize_writer.h"

#include "storage/layout/frame_header.h"

namespace qx {

void ResizeWriter::CopyRecord(OperationContext& context, const FramePlace& start) {
    context.Output.Place = Place;
    context.Input.GoTo(start);
    context.Output.CopyWholeRecord(context.Input);
    Place = context.Output.Place;
    NewBytes += context.Input.Record.TotalBytes();
}

void ResizeWriter::Finish(OperationContext& context) {
    context.Output.Place = Place;
    context.Output.Finish();
}

void ResizeWriter::Account(OperationContext& context) const {
    OpenFile& file = context.File;
    file.Counts.ChangeAlpha(Place.Group, file.Capped(OldBytes), file.Capped(NewBytes));
}

void ResizeWriter::TakeBack(OperationContext& context) const {
    OpenFile& file = context.File;
    file.Counts.ChangeAlpha(Place.Group, file.Capped(NewBytes), file.Capped(OldBytes));
}

ResizeGroups::ResizeGroups(uint32_t modulo) {
    const ModuloSplit split(modulo);
    if (split.Remainder != ModuloSplit::kSingleGroup) {
        first_ = split.Remainder;
        count_ = split.Multiplier;
        level_ = split.Level;
    }
}

std::optional<uint32_t> ResizeGroups::IndexOf(uint32_t group) const {
    for (uint32_t i = 0; i < count_; ++i) {
        if ((*this)[i] == group) {
            return i;
        }
    }
    return std::nullopt;
}

ResizeLocks::ResizeLocks(OperationContext& context, const ResizeGroups& groups, uint32_t lastGroup)
    : context_(context), slots_{Slot(context), Slot(context), Slot(context), Slot(context)} {
    for (uint32_t i = 0; i < groups.Count(); ++i) {
        Take(groups[i]);
    }
    Take(lastGroup);
}

void ResizeLocks::Take(uint32_t group) {
    if (group != kHeaderGroup) {
        slots_[taken_].Lock.Lock(group, true);
        slots_[taken_++].Group = group;
    }
}

void ResizeLocks::Release(uint32_t group) {
    for (Slot& slot : slots_) {
        if (slot.Group == group) {
            slot.Lock.Release();
        }
    }
}

uint32_t HashRecord(InputCursor& input) {
    input.ReadRecordHeader();
    KeyHash hash;
    for (uint32_t left = input.Record.KeyLength; left > 0;) {
        input.LeaveUsedUpFrame();
        const uint32_t run = std::min(left, input.LeftInFrame());
        for (uint32_t i = 0; i < run; ++i) {
            hash.Take(input.Here()[i]);
        }
        input.Place.Position += run;
        left -= run;
    }
    return hash.Value();
}

// As groups are added a key's group changes only to the new one. So a key that was ever in a group came into it when it
// was added, and a key that did not never was.
bool IsLeftBehind(uint32_t hash, uint32_t group, const ModuloSplit& split) {
    return GroupOf(hash, split) != group && GroupOf(hash, group + 1) == group;
}

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

void RewriteGroup(OperationContext& context, uint32_t group, uint32_t modulo, StayRule stays) {
    const ModuloSplit split(modulo);
    InputCursor& input = context.Input;
    OutputStream& output = context.Output;
    input.Group = group;
    input.ReadPrimaryFrame(ShortRead::Fail);
    std::memcpy(output.Place.Buffer, input.Buffer, input.Place.Position);
    SetModuloStamp(output.Place.Buffer, modulo);
    output.Start(group, input.Place);
    while (!input.AtEndOfGroup()) {
        const FramePlace start = input.Place;
        if (stays(HashRecord(input), group, split)) {
            input.GoTo(start);
            output.CopyWholeRecord(input);
        } else {
            input.SkipRecordData();
        }
    }
    output.Finish();
}

void StoreModulo(OperationContext& context, uint32_t modulo) {
    OpenFile& file = context.File;
    const uint32_t before = file.Modulo.exchange(modulo);
    FirstFailure failure;
    if (!failure.Run([&] { WriteHeader(context); })) {
        file.Modulo = before;
        failure.RaiseIfAny();
    }
}

void FlushAfterResize(OperationContext& context) {
    FlushAfterUpdate(context);
    if (!context.Settings().FlushAllUpdates && context.Settings().FlushFileSizeUpdates) {
        FlushIfModified(context, WhichFile::Primary);
    }
}

}  // namespace qx
