#include "records/walk.h"

#include <limits>

#include "storage/operation_context.h"
#include "storage/select_hold.h"
#include "storage/walk_position.h"

namespace qx {

namespace {

// The list of keys that a call gathers in the application's buffer.
class KeyList {
  public:
    KeyList(FileCall& call, uint32_t buffer) : call_(call), buffer_(buffer) {}

    uint64_t Length() const { return length_; }

    // Takes the key of the record whose header the cursor has just read.
    void Take(InputCursor& input) {
        const uint64_t needed = length_ + input.Record.KeyLength + 1;
        if (needed > bytes_.size()) {
            Grow(needed, input.Group);
        }
        input.ReadBytes(input.Record.KeyLength, bytes_.data() + length_);
        bytes_[needed - 1] = static_cast<uint8_t>(call_.Handle->SelectDelimiter);
        length_ = needed;
    }

    // Gives the buffer its final length, unless it has it already.
    void HandOver() {
        const bool trim = call_.Handle->TrimLastDelimiter && length_ > 0;
        if (length_ == 0 || length_ != bytes_.size() || trim) {
            const auto length = static_cast<uint32_t>(trim ? length_ - 1 : length_);
            CountRefusals([&] { call_.Session->Buffers.Allocate(buffer_, length); });
        }
    }

  private:
    void Grow(uint64_t needed, uint32_t group) {
        if (call_.Exceeds(needed) || needed > std::numeric_limits<uint32_t>::max()) {
            Raise(Code::KeyListTooLong, 1, group);
        }
        CountRefusals([&] { bytes_ = call_.Session->Buffers.Extend(buffer_, static_cast<uint32_t>(needed)); });
    }

    template <class Request>
    void CountRefusals(Request&& request) {
        FirstFailure failure;
        if (!failure.Run(request)) {
            call_.Levels.CountForSession(Counter::ReadNextAllocationErrors);
        }
        failure.RaiseIfAny();
    }

    FileCall& call_;
    const uint32_t buffer_;
    std::span<uint8_t> bytes_;  // as the callback last returned them
    uint64_t length_ = 0;
};

void TakeWalkHold(FileCall& call) {
    if (!call.Handle->WalkHasHold) {
        TakeSelectHold(call);
        call.Handle->WalkHasHold = true;
    }
}

// The last group of the file, whose number of groups is held still. Another process may have changed it before.
uint32_t LastGroup(OperationContext& context) {
    if (context.File.Volume.Locks.Supported) {
        ReadHeader(context, HeaderAccess::Shared);
        context.HeaderLock.Release();
    }
    return context.File.Modulo - 1;
}

// Moves the position to the next group; false when there is none. A walk begins with a select hold; a forward one
// learns how many groups there are when it reads group 0.
bool Advance(FileCall& call, OperationContext& context, WalkDirection direction) {
    FileHandle& handle = *call.Handle;
    if (!WalkIsUnderWay(call)) {
        TakeWalkHold(call);
        handle.PositionStart = direction == WalkDirection::Forward ? 0 : LastGroup(context);
    } else if (direction == WalkDirection::Forward) {
        if (handle.PositionEnd >= call.File->Modulo - 1) {
            return false;
        }
        handle.PositionStart = handle.PositionEnd + 1;
    } else {
        if (handle.PositionStart == 0) {
            return false;
        }
        --handle.PositionStart;
    }
    handle.PositionEnd = handle.PositionStart;
    return true;
}

void ListGroup(OperationContext& context, uint32_t group, KeyList& list) {
    InputCursor& input = context.Input;
    input.Group = group;
    context.GroupLock.Lock(group, false);
    input.ReadPrimaryFrame(ShortRead::Fail);
    while (!input.AtEndOfGroup()) {
        input.ReadRecordHeader();
        list.Take(input);
        input.SkipRecordData();
    }
    context.GroupLock.Release();
}

// A forward walk gathers groups until the list is as long as the handle wants it; a backward walk passes empty groups
// if the handle wants any length at all. False when the walk runs out of groups with nothing gathered.
bool GatherGroups(FileCall& call, OperationContext& context, WalkDirection direction, KeyList& list) {
    FileHandle& handle = *call.Handle;
    for (;;) {
        ListGroup(context, handle.PositionEnd, list);
        if (direction == WalkDirection::Forward) {
            if (list.Length() >= handle.SelectMinimumSize) {
                return true;
            }
            if (handle.PositionEnd >= call.File->Modulo - 1) {
                return list.Length() > 0;
            }
            ++handle.PositionEnd;
        } else {
            if (list.Length() > 0 || handle.SelectMinimumSize == 0) {
                return true;
            }
            if (handle.PositionStart == 0) {
                return false;
            }
            --handle.PositionStart;
            --handle.PositionEnd;
        }
    }
}

bool Step(FileCall& call, uint32_t keyList, WalkDirection direction) {
    if (call.Handle->PositionObjectInUse) {
        LoadPosition(call);
    }
    OperationContext context(*call.File, call.Levels);
    if (!Advance(call, context, direction)) {
        return false;
    }
    KeyList list(call, keyList);
    if (!GatherGroups(call, context, direction, list)) {
        return false;
    }
    list.HandOver();
    return true;
}

// What fails while a walk is being ended is not reported: the call has its outcome.
void EndWalkQuietly(FileCall& call) {
    FirstFailure ignored;
    ignored.Run([&] { EndWalk(call); });
    if (call.Handle->PositionObjectInUse) {
        ignored.Run([&] { StorePosition(call); });
    }
}

}  // namespace

bool ReadKeyIdGroup(FileCall& call, uint32_t keyList, WalkDirection direction) {
    const ClaimHold state(call.Handle->SelectState);
    const PrimaryAttachment attachment(*call.File);
    FirstFailure failure;
    bool more = false;
    failure.Run([&] {
        more = Step(call, keyList, direction);
        if (more && call.Handle->PositionObjectInUse) {
            StorePosition(call);
        }
    });
    if (!failure.Good() || !more) {
        EndWalkQuietly(call);
        failure.RaiseIfAny();
    }
    return more;
}

void ClearSelect(FileCall& call) {
    const ClaimHold state(call.Handle->SelectState);
    EndOpenWalk(call);
}

}  // namespace qx
