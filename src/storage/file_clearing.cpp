#include "storage/file_clearing.h"

#include <optional>

#include "storage/layout/empty_group.h"
#include "storage/operation_context.h"
#include "storage/select_lock.h"

namespace qx {

namespace {

// Keeps walks and changes of the modulo out while a file is cleared: exclusively, with the structure mutex, when nobody
// in any process holds the number of groups still; otherwise as one more of those who do.
class ClearHold {
  public:
    explicit ClearHold(OperationContext& context) : context_(context) {
        OpenFile& file = context.File;
        mutex_.emplace(file.StructureMutex);
        const bool othersHold = file.SelectCount > 0;
        if (!othersHold && TryLockSelectExclusive(file)) {
            return;
        }
        if (!othersHold) {
            LockSelectShared(file);
        }
        ++file.SelectCount;
        mutex_.reset();
    }

    ~ClearHold() {
        context_.HeaderLock.Release();
        OpenFile& file = context_.File;
        if (IsExclusive()) {
            UnlockSelect(file);
            return;
        }
        const PatientClaimHold hold(file.StructureMutex);
        if (--file.SelectCount == 0) {
            UnlockSelect(file);
        }
    }

    ClearHold(const ClearHold&) = delete;
    ClearHold& operator=(const ClearHold&) = delete;

    bool IsExclusive() const { return mutex_.has_value(); }

  private:
    OperationContext& context_;
    std::optional<ClaimHold> mutex_;
};

FileHeader EmptyHeader(const OpenFile& file, uint32_t modulo) {
    FileHeader header;
    header.HeaderLength = static_cast<uint8_t>(file.Group0HeaderSize);
    header.Modulo = modulo;
    header.FrameSize = file.FrameSize;
    header.Alpha = EmptyAlpha(header.HeaderLength, modulo);
    header.Threshold = static_cast<uint8_t>(file.Threshold);
    header.SizeLock = static_cast<uint16_t>(file.SizeLock);
    return header;
}

void ShrinkToOneGroup(OperationContext& context, uint8_t* frame) {
    OpenFile& file = context.File;
    file.Modulo = 1;
    file.Counts.Reset(EmptyAlpha(file.Group0HeaderSize, 1));
    WriteFrame(context, WhichFile::Primary, 0, file.FrameSize, frame);
    SetFileFrames(context, WhichFile::Primary, 1);
    if (context.Settings().FlushAllUpdates || context.Settings().FlushFileSizeUpdates) {
        FlushIfModified(context, WhichFile::Primary);
    }
}

// A header that claims more groups than the file has frames would make the file grow without end.
void CheckLength(OperationContext& context) {
    uint32_t frames = 0;
    if (!OsGetSize(context.HandleOf(WhichFile::Primary), context.File.FrameSize, &frames)) {
        context.Levels.CountWork(Counter::ReadErrors);
        Raise(Code::ReadFailed, Number(WhichFile::Primary), 1);
    }
    if (frames < context.File.Modulo) {
        Raise(Code::BadFrameHeader, Number(WhichFile::Primary), 1);
    }
}

void EmptyEveryGroup(OperationContext& context, uint8_t* frame) {
    OpenFile& file = context.File;
    const uint32_t modulo = file.Modulo;
    file.Counts.Reset(EmptyAlpha(file.Group0HeaderSize, modulo));
    WriteFrame(context, WhichFile::Primary, 0, file.FrameSize, frame);
    TurnIntoEmptyGroup(context.FillCharacter(), frame);
    for (uint32_t group = 1; group < modulo; ++group) {
        context.Levels.CountWork(Counter::GroupLocks);
        context.Output.Place.Group = group;
        WriteFrame(context, WhichFile::Primary, group, file.FrameSize, frame);
        context.Levels.CountWork(Counter::GroupUnlocks);
    }
    context.Output.Place.Group = 0;
    if (context.Settings().FlushAllUpdates) {
        FlushIfModified(context, WhichFile::Primary);
    }
}

// Emptying the file empties its free-frame list. A missing overflow file is left missing.
void EmptyOverflow(OperationContext& context) {
    StatusRecord ignored{};
    const bool attached = RunCatching(ignored, [&] {
        context.AttachOverflow(OverflowAttachment::Missing::Fail);
        return true;
    });
    if (attached) {
        context.AllocationLock.Lock(kOverflowAllocation, true);
        SetFileFrames(context, WhichFile::Overflow, 0);
        if (context.Settings().FlushAllUpdates || context.Settings().FlushFileSizeUpdates) {
            FlushIfModified(context, WhichFile::Overflow);
        }
        context.AllocationLock.Release();
    }
}

}  // namespace

void ClearHashedFile(FileCall& call) {
    OpenFile& file = *call.File;
    const PrimaryAttachment attachment(file);
    if (!call.MayWrite()) {
        Raise(Code::ReadOnly, 1);
    }
    OperationContext context(file, call.Levels);
    const ClearHold hold(context);
    ReadHeader(context, HeaderAccess::Exclusive);
    // A group that was empty already could be written to again, into frames that are about to be cut off.
    const AllGroupsLock groups(file, context.Levels);
    const bool shrink = file.SizeLock == 0 && hold.IsExclusive();
    if (!shrink) {
        CheckLength(context);
    }
    const uint32_t modulo = shrink ? 1 : file.Modulo.load();
    uint8_t* frame = context.Output.Place.Buffer;
    MakeEmptyHeaderGroup(EmptyHeader(file, modulo), context.FillCharacter(), frame);
    // A re-count under way has counted records that are about to go; it cannot begin anew before group 0 is free again.
    file.Counts.RestartTally(modulo);
    file.Counts.ResetRecordCount();
    if (shrink) {
        ShrinkToOneGroup(context, frame);
    } else {
        EmptyEveryGroup(context, frame);
    }
    EmptyOverflow(context);
}

}  // namespace qx
