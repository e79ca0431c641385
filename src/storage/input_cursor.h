// Reading a group: one byte stream, cut into the frames of its chain.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "runtime/counters.h"
#include "runtime/status.h"
#include "storage/frame_io.h"

namespace qx {

class OperationContext;
class OutputStream;

// Where something stands in a group's frames.
struct FramePlace {
    WhichFile File = WhichFile::Primary;
    uint32_t Frame = 0;
    uint32_t Position = 0;
    uint32_t FramesTaken = 0;  // overflow frames that the walk along the chain took to get here
};

// The two numbers that begin a record.
struct RecordHeader {
    uint32_t Length = 0;          // of what follows the Length number, without the terminator
    uint32_t LengthBytes = 0;     // of the Length number
    uint32_t KeyLength = 0;       // of the key
    uint32_t KeyLengthBytes = 0;  // of the KeyLength number

    uint32_t DataLength() const { return Length - KeyLengthBytes - KeyLength; }
    uint64_t TotalBytes() const { return uint64_t{LengthBytes} + Length + 1; }
};

// The group to be read is set by the caller, who holds its lock. What is wrong with the group is raised: 125, 126, 127,
// 107, 1003, with the group in detail 2.
class InputCursor {
  public:
    InputCursor(OperationContext& context, uint8_t* buffer);
    InputCursor(const InputCursor&) = delete;
    InputCursor& operator=(const InputCursor&) = delete;

    // Starts at the group's first record. False when the primary frame lies beyond the file and that is allowed.
    bool ReadPrimaryFrame(ShortRead shortRead);

    // Moves to the next frame of the chain.
    void NextFrame();

    // Moves to the next frame if the current one is used up, and back to a place that the cursor has passed.
    void LeaveUsedUpFrame() {
        if (Place.Position == frameSize_) {
            NextFrame();
        }
    }
    void GoTo(const FramePlace& place);

    // At the end-of-group mark: true, and the group goes into the re-count if one is being made.
    bool AtEndOfGroup();

    // Decodes the two numbers of the record under the cursor, which must make sense together and fit into the file, and
    // adds the record to the tallies. With `copy` their bytes are also appended to the output stream.
    void ReadRecordHeader(OutputStream* copy = nullptr);

    void ReadBytes(uint32_t count, uint8_t* to);
    void CopyBytes(uint32_t count, OutputStream& to);

    // Passes `count` bytes of a key.
    void SkipBytes(uint32_t count);

    // Passes the current record's data, without reading the frames of a long one, and its terminator.
    void SkipRecordData();

    // Takes the terminator; with `copy` it is also appended to the output stream.
    void ReadTerminator(OutputStream* copy = nullptr);

    // Compares the current record's key, whose first byte is under the cursor, with `key`, and leaves the cursor behind
    // the key.
    bool MatchKey(std::string_view key);

    uint32_t LeftInFrame() const { return frameSize_ - Place.Position; }
    const uint8_t* Here() const { return Buffer + Place.Position; }

    uint32_t Group = 0;
    FramePlace Place;
    uint8_t* Buffer;  // image of the current frame
    RecordHeader Record;

    // What has been passed in the group so far.
    uint32_t RecordsSeen = 0;
    uint64_t GroupBytes = 0;    // used bytes, the end-of-group mark included
    uint64_t KeyListBytes = 0;  // key lengths, each plus one

  private:
    uint8_t TakeByte() {
        LeaveUsedUpFrame();
        return Buffer[Place.Position++];
    }

    uint32_t ReadNumber(uint32_t* size, OutputStream* copy);
    void CheckExtent(uint64_t bytes);
    void MoveTo(uint32_t overflowFrame);
    [[noreturn]] void FailGroup(Code code, Counter counter);
    [[noreturn]] void FailTermination();

    OperationContext& context_;
    const uint32_t frameSize_;
};

}  // namespace qx
