#include "records/write.h"

#include <cstring>
#include <limits>
#include <optional>

#include "records/find.h"
#include "storage/layout/variable_number.h"
#include "storage/resize_queue.h"

namespace qx {

namespace {

// The cursor stands on the first byte of data that is exactly as long. A failure leaves what has been overwritten.
void OverwriteData(OperationContext& context, std::string_view data) {
    InputCursor& input = context.Input;
    context.Output.Place.Group = input.Group;
    bool changed = false;
    while (!data.empty()) {
        if (input.LeftInFrame() == 0) {
            if (changed) {
                WriteFrame(context, input.Place.File, input.Place.Frame, input.Place.Position, input.Buffer);
            }
            input.NextFrame();
        }
        const size_t run = std::min<size_t>(data.size(), input.LeftInFrame());
        std::memcpy(input.Buffer + input.Place.Position, data.data(), run);
        input.Place.Position += static_cast<uint32_t>(run);
        data.remove_prefix(run);
        changed = true;
    }
    if (changed) {
        WriteFrame(context, input.Place.File, input.Place.Frame, input.Place.Position, input.Buffer);
    }
}

// Takes the record that begins at `start`, and whose data the cursor stands on, out of its group: the stream starts
// there and every record after it follows.
void CutOut(OperationContext& context, const FramePlace& start) {
    InputCursor& input = context.Input;
    OutputStream& output = context.Output;
    output.Start(input.Group, start);
    if (start.File == input.Place.File && start.Frame == input.Place.Frame) {
        std::memcpy(output.Place.Buffer, input.Buffer, start.Position);
    } else {
        ReadFrame(context, start.File, start.Frame, start.Position, ShortRead::Fail, output.Place.Buffer);
    }
    input.SkipRecordData();
    while (!input.AtEndOfGroup()) {
        input.ReadRecordHeader(&output);
        output.CopyRecord(input);
    }
}

// Whether the group goes on behind the frame in which the record that the cursor is in begins.
bool GoesOnBehind(const InputCursor& input, const FramePlace& start) {
    return start.File != input.Place.File || start.Frame != input.Place.Frame || ForwardLink(input.Buffer) != 0;
}

// A group's keys are handed out as one list, which must stay within the limits too.
void CheckKeyList(const FileCall& call, const InputCursor& input, std::string_view key) {
    if (call.Exceeds(input.KeyListBytes + key.size() + 1)) {
        Raise(Code::KeyListTooLong, 1, input.Group);
    }
}

void Account(OperationContext& context, int32_t recordChange, uint64_t oldBytes, uint64_t newBytes) {
    OpenFile& file = context.File;
    const InputCursor& input = context.Input;
    if (recordChange != 0) {
        file.Counts.AddRecord(input.Group, recordChange);
    }
    const uint64_t before = input.GroupBytes;
    file.Counts.ChangeAlpha(input.Group, file.Capped(before), file.Capped(before - oldBytes + newBytes));
}

// Writes `data` under a key, or deletes the key's record when there is none. False when there was nothing to delete.
bool ChangeRecord(OperationContext& context, const FileCall& call, std::string_view key,
                  std::optional<std::string_view> data) {
    InputCursor& input = context.Input;
    OutputStream& output = context.Output;
    FramePlace start;
    const bool found = FindRecord(context, key, true, &start);
    if (!found && !data) {
        return false;
    }
    if (found && data && input.Record.DataLength() == data->size()) {
        OverwriteData(context, *data);
        return true;
    }
    uint64_t oldBytes = 0;
    uint64_t newBytes = 0;
    if (found) {
        oldBytes = input.Record.TotalBytes();
        if (data && data->size() > input.Record.DataLength() && GoesOnBehind(input, start)) {
            context.List.Lock();  // to be refused it with frames of the group overwritten would lose the record
        }
        CutOut(context, start);
    } else {
        CheckKeyList(call, input, key);
        output.TakeOver(input);
    }
    if (data) {
        newBytes = output.PutRecord(key, *data);
    }
    FirstFailure failure;
    if (failure.Run([&] {
            output.Finish();
            context.List.Commit();
        })) {
        output.CallRecordSafe();
    }
    if (output.GroupIsWhole()) {
        Account(context, (data ? 1 : 0) - (found ? 1 : 0), oldBytes, newBytes);
    }
    failure.RaiseIfAny();
    context.SlotOf(input.Group).Release();
    RefreshHeaderIfDrifted(context);
    theResizeQueue.Check(context.File);
    return true;
}

// What writing and deleting have in common: the context, and the flush that a volume may want after every update.
template <class Change>
bool ChangeFile(FileCall& call, Change&& change) {
    const PrimaryAttachment attachment(*call.File);
    if (!call.MayWrite()) {
        Raise(Code::ReadOnly, 1);
    }
    OperationContext context(*call.File, call.Levels);
    const bool changed = change(context);
    FlushAfterUpdate(context);
    return changed;
}

}  // namespace

void WriteRecord(FileCall& call, uint32_t keyBuffer, uint32_t recordBuffer) {
    ChangeFile(call, [&](OperationContext& context) {
        const std::string_view key = call.Session->Buffers.Get(keyBuffer);
        const std::string_view data = call.Session->Buffers.Get(recordBuffer);
        // A record's length is a 32-bit number that covers its key too.
        if (call.Exceeds(data.size()) ||
            key.size() + data.size() + kLongestNumber > std::numeric_limits<uint32_t>::max()) {
            Raise(Code::RecordTooLong);
        }
        return ChangeRecord(context, call, key, data);
    });
}

bool DeleteRecord(FileCall& call, uint32_t keyBuffer) {
    return ChangeFile(call, [&](OperationContext& context) {
        return ChangeRecord(context, call, call.Session->Buffers.Get(keyBuffer), std::nullopt);
    });
}

}  // namespace qx
