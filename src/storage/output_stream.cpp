#include "storage/output_stream.h"

#include <utility>

#include "storage/layout/frame_header.h"
#include "storage/layout/variable_number.h"
#include "storage/operation_context.h"

namespace qx {

OutputStream::OutputStream(OperationContext& context, uint8_t* buffer, uint8_t* heldBuffer)
    : context_(context), frameSize_(context.File.FrameSize) {
    Place.Buffer = buffer;
    held_.Buffer = heldBuffer;
}

OutputStream::~OutputStream() {
    if (frameWritten_ && recordStart_.Position != 0) {
        SealAfterFailure();
    }
}

// A write that fails may have written a part.
void OutputStream::WriteGroupFrame(const OutputPlace& place) {
    frameWritten_ = true;
    WriteFrame(context_, place.File, place.Frame, frameSize_, place.Buffer);
}

void OutputStream::LeaveFullFrame() {
    if (Place.Position == frameSize_) {
        Advance();
    }
}

void OutputStream::CheckOwner(const uint8_t* frame) {
    if (OwnerGroup(frame) != Place.Group) {
        context_.Levels.CountWork(Counter::GfeLinkErrors);
        Raise(Code::FrameLink, Number(WhichFile::Overflow), Place.Group + 1);
    }
}

// A chain that takes more frames than the overflow file holds runs in a circle.
void OutputStream::CountStep() {
    if (!context_.OverflowHolds(++framesTaken_)) {
        context_.Levels.CountWork(Counter::GfeLinkErrors);
        Raise(Code::FrameLink, Number(WhichFile::Overflow), Place.Group + 1);
    }
}

void OutputStream::Advance() {
    uint32_t next = ForwardLink(Place.Buffer);
    const bool isNew = next == 0;
    if (isNew) {
        next = context_.List.Allocate(Place.File == WhichFile::Overflow ? Place.Frame : 0);
        SetForwardLink(Place.Buffer, next);
    }
    if (holdNextFrame_) {
        holdNextFrame_ = false;
        std::swap(held_, Place);
        Place.Group = held_.Group;
    } else {
        SetSkipLink(Place.Buffer, next);
        WriteGroupFrame(Place);
    }
    Place.File = WhichFile::Overflow;
    Place.Frame = next;
    Place.Position = kOverflowHeaderLength;
    if (isNew) {
        StartOverflowFrame(Place.Buffer, Place.Group);
    } else {
        context_.AttachOverflow(OverflowAttachment::Missing::Fail);
        CountStep();
        ReadFrame(context_, WhichFile::Overflow, next, kOverflowHeaderLength, ShortRead::Fail, Place.Buffer);
        CheckOwner(Place.Buffer);
    }
}

void OutputStream::PutBytes(const uint8_t* bytes, uint32_t count) {
    while (count > 0) {
        LeaveFullFrame();
        const uint32_t run = std::min(count, frameSize_ - Place.Position);
        std::memcpy(Place.Buffer + Place.Position, bytes, run);
        Place.Position += run;
        bytes += run;
        count -= run;
    }
}

void OutputStream::PutNumber(uint32_t value) {
    uint8_t bytes[kLongestNumber];
    PutBytes(bytes, EncodeNumber(value, bytes));
}

void OutputStream::BeginData(uint32_t length) {
    const bool isLong = length >= uint64_t{2} * frameSize_ - kOverflowHeaderLength - Place.Position;
    holdNextFrame_ = isLong;
    skipLinkPending_ = isLong;
}

void OutputStream::EndRecord() {
    if (skipLinkPending_) {
        SetSkipLink(held_.Buffer, Place.Frame);
        WriteGroupFrame(held_);
        skipLinkPending_ = false;
    }
}

uint64_t OutputStream::PutRecord(std::string_view key, std::string_view data) {
    const auto keyLength = static_cast<uint32_t>(key.size());
    const auto dataLength = static_cast<uint32_t>(data.size());
    const uint32_t length = NumberSize(keyLength) + keyLength + dataLength;
    LeaveFullFrame();
    recordStart_ = {Place.File, Place.Frame, Place.Position};
    PutNumber(length);
    PutNumber(keyLength);
    PutBytes(reinterpret_cast<const uint8_t*>(key.data()), keyLength);
    BeginData(dataLength);
    PutBytes(reinterpret_cast<const uint8_t*>(data.data()), dataLength);
    PutByte(kRecordTerminator);
    EndRecord();
    return uint64_t{NumberSize(length)} + length + 1;
}

void OutputStream::CopyRecord(InputCursor& from) {
    from.CopyBytes(from.Record.KeyLength, *this);
    CopyDataAndTerminator(from);
}

void OutputStream::CopyWholeRecord(InputCursor& from) {
    const RecordHeader& record = from.Record;
    from.CopyBytes(record.LengthBytes + record.KeyLengthBytes, *this);
    from.CopyBytes(record.KeyLength, *this);
    CopyDataAndTerminator(from);
}

void OutputStream::CopyDataAndTerminator(InputCursor& from) {
    BeginData(from.Record.DataLength());
    from.CopyBytes(from.Record.DataLength(), *this);
    from.ReadTerminator(this);
    EndRecord();
}

void OutputStream::Start(uint32_t group, const FramePlace& at) {
    Place = {group, at.File, at.Frame, at.Position, Place.Buffer};
    holdNextFrame_ = false;
    skipLinkPending_ = false;
    finished_ = false;
    framesTaken_ = 0;
}

void OutputStream::Finish() {
    PutByte(kEndOfGroup);
    uint32_t old = ForwardLink(Place.Buffer);
    if (old != 0 && !frameWritten_) {
        context_.List.Load();  // if that fails, nothing has changed
    }
    SetForwardLink(Place.Buffer, 0);
    SetSkipLink(Place.Buffer, 0);
    std::memset(Place.Buffer + Place.Position, context_.FillCharacter(), frameSize_ - Place.Position);
    WriteGroupFrame(Place);
    finished_ = true;
    if (old != 0) {
        CallRecordSafe();  // the group is complete, and what is left of its chain says that it took no new frame
    }
    while (old != 0) {
        context_.AttachOverflow(OverflowAttachment::Missing::Fail);
        CountStep();
        Place.File = WhichFile::Overflow;
        Place.Frame = old;
        ReadFrame(context_, WhichFile::Overflow, old, kOverflowHeaderLength, ShortRead::Fail, Place.Buffer);
        CheckOwner(Place.Buffer);
        context_.List.Free(old);
        old = ForwardLink(Place.Buffer);
    }
    framesTaken_ = 0;
}

void OutputStream::TakeOver(InputCursor& cursor) {
    uint8_t* free = Place.Buffer;
    Place = {cursor.Group, cursor.Place.File, cursor.Place.Frame, cursor.Place.Position, cursor.Buffer};
    cursor.Buffer = free;
}

// The frame in which the record starts may still be in memory only, with records in it that have been shifted: then its
// image there is what must stand before the cut, and otherwise what is on disk.
bool OutputStream::ImageOfRecordStart(uint8_t* image) {
    const bool isHeld = skipLinkPending_ && !holdNextFrame_;
    for (const OutputPlace* place : {&Place, &held_}) {
        if (place->File == recordStart_.File && place->Frame == recordStart_.Frame && (place == &Place || isHeld)) {
            std::memmove(image, place->Buffer, recordStart_.Position);
            return true;
        }
    }
    context_.Levels.CountWork(Counter::ReadFrames);
    return OsRead(context_.HandleOf(recordStart_.File), frameSize_, recordStart_.Frame, image,
                  recordStart_.Position + 1) == FileResult::Done;
}

void OutputStream::SealAfterFailure() {
    uint8_t* image = Place.Buffer;
    if (ImageOfRecordStart(image)) {
        SetForwardLink(image, 0);
        SetSkipLink(image, 0);
        image[recordStart_.Position] = kEndOfGroup;
        StoreFrame(context_, recordStart_.File, recordStart_.Frame, recordStart_.Position + 1, image);
    }
}

}  // namespace qx
