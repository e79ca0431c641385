// Writing a group: the stream goes over the group's existing chain and takes further overflow frames when that runs
// out.
#pragma once

#include <cstdint>
#include <string_view>

#include "runtime/status.h"
#include "storage/input_cursor.h"

namespace qx {

class OperationContext;

// Where the next byte goes.
struct OutputPlace {
    uint32_t Group = 0;
    WhichFile File = WhichFile::Primary;
    uint32_t Frame = 0;
    uint32_t Position = 0;
    uint8_t* Buffer = nullptr;  // image of the current frame
};

// The caller holds the group's lock exclusively. Raises 103, 104 and 1004 from writing, 126 when a frame of the chain
// belongs elsewhere, and what taking and giving back overflow frames can raise.
//
// The first frame of a record whose data and terminator do not end within the next frame is held back until the
// terminator is placed, because its skip link must name the frame that holds the terminator.
class OutputStream {
  public:
    OutputStream(OperationContext& context, uint8_t* buffer, uint8_t* heldBuffer);
    // If a record was begun and something failed before it was safe, the group is cut just before it. A group of which
    // nothing has been written is left as it was.
    ~OutputStream();
    OutputStream(const OutputStream&) = delete;
    OutputStream& operator=(const OutputStream&) = delete;

    void PutByte(uint8_t byte) {
        LeaveFullFrame();
        Place.Buffer[Place.Position++] = byte;
    }

    void PutBytes(const uint8_t* bytes, uint32_t count);

    // A record: numbers, key, data, terminator; returns how many bytes that is. Until it is called safe a failure cuts
    // the group at its first byte.
    uint64_t PutRecord(std::string_view key, std::string_view data);

    // Copies the record whose header the cursor has just read with this stream as its copy.
    void CopyRecord(InputCursor& from);

    // Copies the record that begins under the cursor and whose header the cursor has read before.
    void CopyWholeRecord(InputCursor& from);

    // Puts the end-of-group mark, fills and writes the last frame and gives the rest of the old chain back.
    void Finish();

    // Whether the group has been written to its end and stays so: a failure after that makes no difference to it.
    bool GroupIsWhole() const { return finished_ && recordStart_.Position == 0; }

    // Starts on a group at a place in one of its frames, of which the stream's buffer is to hold what lies before that
    // place. A group before it may have been left half written.
    void Start(uint32_t group, const FramePlace& at);

    // Goes on in the cursor's frame, at the cursor; the cursor gets another buffer.
    void TakeOver(InputCursor& cursor);

    // The record is completely on disk and the frames that it took are off the free list.
    void CallRecordSafe() { recordStart_ = {}; }

    OutputPlace Place;

  private:
    void LeaveFullFrame();
    void WriteGroupFrame(const OutputPlace& place);
    void SealAfterFailure();
    void Advance();
    void CopyDataAndTerminator(InputCursor& from);
    void BeginData(uint32_t length);
    void EndRecord();
    void PutNumber(uint32_t value);
    void CheckOwner(const uint8_t* frame);
    void CountStep();
    bool ImageOfRecordStart(uint8_t* image);

    OperationContext& context_;
    const uint32_t frameSize_;
    FramePlace recordStart_;  // of the record being written; position 0: none
    bool holdNextFrame_ = false;
    bool skipLinkPending_ = false;  // a frame is held back
    OutputPlace held_;
    bool frameWritten_ = false;  // something of the group may be on disk already
    bool finished_ = false;      // so is the frame with its end-of-group mark
    uint32_t framesTaken_ = 0;   // frames of the old chain visited
};

}  // namespace qx
