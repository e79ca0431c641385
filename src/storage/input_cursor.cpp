#include "storage/input_cursor.h"

#include "storage/layout/frame_header.h"
#include "storage/layout/variable_number.h"
#include "storage/operation_context.h"

namespace qx {

InputCursor::InputCursor(OperationContext& context, uint8_t* buffer)
    : Buffer(buffer), context_(context), frameSize_(context.File.FrameSize) {}

void InputCursor::FailGroup(Code code, Counter counter) {
    context_.Levels.CountWork(counter);
    Raise(code, Number(WhichFile::Overflow), Group + 1);
}

void InputCursor::FailTermination() {
    FailGroup(Code::RecordTermination, Counter::GfeRecordTerminationErrors);
}

bool InputCursor::ReadPrimaryFrame(ShortRead shortRead) {
    if (!ReadFrame(context_, WhichFile::Primary, Group, frameSize_, shortRead, Buffer)) {
        return false;
    }
    RecordsSeen = 0;
    KeyListBytes = 0;
    GroupBytes = uint64_t{Buffer[0]} + 1;
    Place = {WhichFile::Primary, Group, Buffer[0]};
    return true;
}

void InputCursor::NextFrame() {
    const uint32_t link = ForwardLink(Buffer);
    context_.AttachOverflow(OverflowAttachment::Missing::Fail);
    MoveTo(link);
}

// A chain that takes more frames than the overflow file holds runs in a circle.
void InputCursor::MoveTo(uint32_t overflowFrame) {
    if (overflowFrame == 0) {
        FailGroup(Code::RecordTruncated, Counter::GfeRecordTruncatedErrors);
    }
    const uint32_t framesTaken = Place.FramesTaken + 1;
    if (!context_.OverflowHolds(framesTaken)) {
        FailGroup(Code::FrameLink, Counter::GfeLinkErrors);
    }
    ReadFrame(context_, WhichFile::Overflow, overflowFrame, frameSize_, ShortRead::Fail, Buffer);
    if (OwnerGroup(Buffer) != Group) {
        FailGroup(Code::FrameLink, Counter::GfeLinkErrors);
    }
    Place = {WhichFile::Overflow, overflowFrame, kOverflowHeaderLength, framesTaken};
}

void InputCursor::GoTo(const FramePlace& place) {
    if (place.File != Place.File || place.Frame != Place.Frame) {
        ReadFrame(context_, place.File, place.Frame, frameSize_, ShortRead::Fail, Buffer);
    }
    Place = place;
}

bool InputCursor::AtEndOfGroup() {
    LeaveUsedUpFrame();
    if (*Here() != kEndOfGroup) {
        return false;
    }
    OpenFile& file = context_.File;
    if (file.SizeLock > 1 || file.SelectCount > 0) {
        file.Counts.Tally(Group, file.Modulo, file.Capped(GroupBytes), RecordsSeen);
    }
    return true;
}

uint32_t InputCursor::ReadNumber(uint32_t* size, OutputStream* copy) {
    NumberDecoder number;
    for (bool last = false; !last;) {
        const uint8_t byte = TakeByte();
        if (copy != nullptr) {
            copy->PutByte(byte);
        }
        last = number.Take(byte);
        if (!number.IsSound()) {
            FailTermination();
        }
    }
    *size = number.Size();
    return number.Value();
}

// A record that claims more bytes than the file has left is truncated; noticing it here keeps its length from being
// believed.
void InputCursor::CheckExtent(uint64_t bytes) {
    if (bytes <= LeftInFrame()) {
        return;
    }
    const uint32_t dataPerFrame = frameSize_ - kOverflowHeaderLength;
    const uint64_t frames = (bytes - LeftInFrame() + dataPerFrame - 1) / dataPerFrame;
    context_.AttachOverflow(OverflowAttachment::Missing::Fail);
    if (!context_.OverflowHolds(frames)) {
        FailGroup(Code::RecordTruncated, Counter::GfeRecordTruncatedErrors);
    }
}

void InputCursor::ReadRecordHeader(OutputStream* copy) {
    Record.Length = ReadNumber(&Record.LengthBytes, copy);
    Record.KeyLength = ReadNumber(&Record.KeyLengthBytes, copy);
    if (Record.Length < uint64_t{Record.KeyLengthBytes} + Record.KeyLength) {
        FailTermination();
    }
    CheckExtent(uint64_t{Record.Length} - Record.KeyLengthBytes + 1);
    GroupBytes += Record.TotalBytes();
    KeyListBytes += uint64_t{Record.KeyLength} + 1;
    ++RecordsSeen;
}

void InputCursor::ReadBytes(uint32_t count, uint8_t* to) {
    while (count > 0) {
        LeaveUsedUpFrame();
        const uint32_t run = std::min(count, LeftInFrame());
        std::memcpy(to, Here(), run);
        Place.Position += run;
        to += run;
        count -= run;
    }
}

void InputCursor::CopyBytes(uint32_t count, OutputStream& to) {
    while (count > 0) {
        LeaveUsedUpFrame();
        const uint32_t run = std::min(count, LeftInFrame());
        to.PutBytes(Here(), run);
        Place.Position += run;
        count -= run;
    }
}

void InputCursor::SkipBytes(uint32_t count) {
    while (count > LeftInFrame()) {
        count -= LeftInFrame();
        NextFrame();
    }
    Place.Position += count;
}

bool InputCursor::MatchKey(std::string_view key) {
    uint32_t left = Record.KeyLength;
    if (key.size() == left) {
        const char* wanted = key.data();
        while (left > 0) {
            LeaveUsedUpFrame();
            const uint32_t run = std::min(left, LeftInFrame());
            if (std::memcmp(Here(), wanted, run) != 0) {
                break;
            }
            Place.Position += run;
            wanted += run;
            left -= run;
        }
        if (left == 0) {
            return true;
        }
    }
    SkipBytes(left);
    return false;
}

// A key may end exactly with its frame. Its record's data then counts as beginning there when the frame's skip link
// says where they end; otherwise they begin in the next frame.
void InputCursor::SkipRecordData() {
    const uint32_t left = Record.DataLength();
    const uint32_t dataPerFrame = frameSize_ - kOverflowHeaderLength;
    if (left > 0 && LeftInFrame() == 0 && SkipLink(Buffer) == ForwardLink(Buffer)) {
        NextFrame();
    }
    if (left <= LeftInFrame()) {
        Place.Position += left;
    } else {
        const uint32_t beyond = left - LeftInFrame();
        const uint32_t link = SkipLink(Buffer);
        context_.AttachOverflow(OverflowAttachment::Missing::Fail);
        MoveTo(link);
        Place.Position = beyond % dataPerFrame + kOverflowHeaderLength;
    }
    ReadTerminator();
}

void InputCursor::ReadTerminator(OutputStream* copy) {
    if (TakeByte() != kRecordTerminator) {
        FailTermination();
    }
    if (copy != nullptr) {
        copy->PutByte(kRecordTerminator);
    }
}

}  // namespace qx
