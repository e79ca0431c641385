#include "storage/frame_io.h"

#include <cstring>

#include "storage/layout/frame_header.h"
#include "storage/operation_context.h"

namespace qx {

namespace {

bool HasExpectedHeader(WhichFile file, uint32_t frame, uint8_t headerLength) {
    if (file == WhichFile::Overflow) {
        return headerLength == kOverflowHeaderLength;
    }
    return frame == 0 ? IsFileHeaderLength(headerLength) : headerLength == kPrimaryHeaderLength;
}

bool MayBeWritten(OperationContext& context, WhichFile file, uint32_t frame, uint8_t headerLength) {
    if (file == WhichFile::Primary && frame == 0) {
        return headerLength == context.File.Group0HeaderSize;
    }
    return HasExpectedHeader(file, frame, headerLength);
}

// The record takes over the stored values and keeps the changes that this process has not stored yet.
void RefreshFromHeader(OperationContext& context, const uint8_t* bytes) {
    uint8_t image[kLongestFileHeader] = {};
    std::memcpy(image, bytes, bytes[0]);
    const FileHeader header = DecodeFileHeader(image);
    OpenFile& file = context.File;
    if (!IsPlausible(header) || header.FrameSize != file.FrameSize) {
        Raise(Code::BadFrameHeader, Number(WhichFile::Primary), context.Input.Group + 1);
    }
    file.Group0HeaderSize.store(header.HeaderLength, std::memory_order_release);
    if (file.Modulo.exchange(header.Modulo) != header.Modulo) {
        file.Counts.RestartTally(header.Modulo);  // another process has moved records between groups
    }
    file.Counts.TakeStored(header);
    file.SizeLock = header.SizeLock;
}

RunningCounts::Values PutRunningValues(OperationContext& context, uint8_t* bytes) {
    OpenFile& file = context.File;
    const RunningCounts::Values values = file.Counts.Running();
    StoreRunningFields(bytes, file.Modulo, values.Alpha, values.RecordCount, static_cast<uint16_t>(file.SizeLock));
    return values;
}

[[noreturn]] void FailWrite(OperationContext& context, Code code, WhichFile file) {
    Raise(code, Number(file), context.Output.Place.Group + 1);
}

[[noreturn]] void FailWrite(OperationContext& context, FileResult result, WhichFile file) {
    const bool full = result == FileResult::Exhausted;
    if (full) {
        context.Levels.CountWork(Counter::VolumeFullErrors);
    }
    context.Levels.CountWork(Counter::WriteErrors);
    FailWrite(context, full ? Code::VolumeFull : Code::WriteFailed, file);
}

}  // namespace

bool ReadFrame(OperationContext& context, WhichFile file, uint32_t frame, uint32_t length, ShortRead shortRead,
               uint8_t* buffer) {
    context.Levels.CountWork(Counter::ReadFrames);
    const FileResult result = OsRead(context.HandleOf(file), context.File.FrameSize, frame, buffer, length);
    if (result == FileResult::Exhausted && shortRead == ShortRead::Allow) {
        return false;
    }
    if (result != FileResult::Done) {
        context.Levels.CountWork(Counter::ReadErrors);
        Raise(Code::ReadFailed, Number(file), context.Input.Group + 1);
    }
    if (!HasExpectedHeader(file, frame, buffer[0])) {
        Raise(Code::BadFrameHeader, Number(file), context.Input.Group + 1);
    }
    if (file == WhichFile::Primary && frame == 0) {
        RefreshFromHeader(context, buffer);
    }
    return true;
}

FileResult StoreFrame(OperationContext& context, WhichFile file, uint32_t frame, uint32_t length, uint8_t* buffer) {
    context.Levels.CountWork(Counter::WriteFrames);
    OpenFile& open = context.File;
    const bool isHeaderFrame = file == WhichFile::Primary && frame == 0;
    RunningCounts::Values values{};
    if (isHeaderFrame) {
        values = PutRunningValues(context, buffer);
    }
    const FileResult result = OsWrite(context.HandleOf(file), open.FrameSize, frame, 0, buffer, length);
    if (result != FileResult::Done) {
        return result;
    }
    open.Part(file).Written = true;
    if (file == WhichFile::Overflow && frame >= open.OverflowFramesSeen.load(std::memory_order_relaxed)) {
        open.OverflowFramesSeen.store(frame + 1, std::memory_order_relaxed);
    }
    if (isHeaderFrame) {
        open.Counts.MarkStored(values, buffer[0]);
        std::memmove(context.HeaderImage, buffer, buffer[0]);
    }
    return result;
}

void WriteFrame(OperationContext& context, WhichFile file, uint32_t frame, uint32_t length, uint8_t* buffer) {
    if (!MayBeWritten(context, file, frame, buffer[0])) {
        context.Levels.CountWork(Counter::WriteFrames);
        FailWrite(context, Code::BadFrameToWrite, file);
    }
    const FileResult result = StoreFrame(context, file, frame, length, buffer);
    if (result != FileResult::Done) {
        FailWrite(context, result, file);
    }
}

void SetFileFrames(OperationContext& context, WhichFile file, uint32_t frames) {
    if (!OsSetSize(context.HandleOf(file), context.File.FrameSize, frames)) {
        context.Levels.CountWork(Counter::WriteErrors);
        Raise(Code::WriteFailed, Number(file), context.Output.Place.Group + 1);
    }
    if (file == WhichFile::Overflow) {
        context.File.OverflowFramesSeen.store(frames, std::memory_order_relaxed);
    }
    context.File.Part(file).Written = true;
}

void FlushIfModified(OperationContext& context, WhichFile file) {
    if (file == WhichFile::Overflow && !context.OverflowIsAttached()) {
        return;
    }
    if (context.File.Part(file).Written.exchange(false) && !OsFlush(context.HandleOf(file))) {
        context.Levels.CountWork(Counter::WriteErrors);
        Raise(Code::WriteFailed, Number(file));
    }
}

void FlushAfterUpdate(OperationContext& context) {
    if (context.Settings().FlushAllUpdates) {
        FlushIfModified(context, WhichFile::Primary);
        FlushIfModified(context, WhichFile::Overflow);
    }
}

void ReadHeader(OperationContext& context, HeaderAccess access) {
    const bool exclusive = access == HeaderAccess::Exclusive;
    GroupLockSlot& slot = context.HeaderLock;
    if (exclusive && slot.IsHeld() && !slot.IsHeldExclusive()) {
        slot.Release();
    }
    if (!slot.IsHeld()) {
        slot.Lock(kHeaderGroup, exclusive);
    }
    ReadFrame(context, WhichFile::Primary, 0, kLongestFileHeader, ShortRead::Fail, context.HeaderImage);
}

void WriteHeader(OperationContext& context) {
    WriteFrame(context, WhichFile::Primary, 0, context.File.Group0HeaderSize, context.HeaderImage);
}

void WriteHeaderIfDifferent(OperationContext& context) {
    RunningCounts& counts = context.File.Counts;
    if (!counts.DifferFromStored(context.File.Group0HeaderSize)) {
        return;
    }
    ReadHeader(context, HeaderAccess::Exclusive);
    if (counts.DifferFromStored(context.File.Group0HeaderSize)) {
        WriteHeader(context);
    }
}

void RefreshHeaderIfDrifted(OperationContext& context) {
    OpenFile& file = context.File;
    if (!file.Counts.HaveDrifted(file.Group0HeaderSize, file.FrameSize)) {
        return;
    }
    ReadHeader(context, HeaderAccess::Exclusive);
    if (file.Counts.HaveDrifted(file.Group0HeaderSize, file.FrameSize)) {
        WriteHeader(context);
    }
}

}  // namespace qx
