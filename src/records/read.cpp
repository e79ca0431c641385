#include "records/read.h"

#include "records/find.h"
#include "records/group_rule.h"

namespace qx {

namespace {

// The status that the callback may have left is not the application's business: it only learns that it refused.
uint8_t* AllocateRecord(FileCall& call, uint32_t recordBuffer, uint32_t length) {
    uint8_t* bytes = nullptr;
    StatusRecord ofCallback{};
    const bool good = RunCatching(ofCallback, [&] {
        bytes = call.Session->Buffers.Allocate(recordBuffer, length).data();
        return true;
    });
    if (!good) {
        call.Levels.CountForSession(Counter::ReadAllocationErrors);
        Raise(Code::BufferRefused);
    }
    return bytes;
}

}  // namespace

bool ReadRecord(FileCall& call, uint32_t keyBuffer, uint32_t recordBuffer) {
    const PrimaryAttachment attachment(*call.File);
    OperationContext context(*call.File, call.Levels);
    const std::string_view key = call.Session->Buffers.Get(keyBuffer);
    FramePlace start;
    if (!FindRecord(context, key, false, &start)) {
        return false;
    }
    const uint32_t length = context.Input.Record.DataLength();
    if (call.Exceeds(length)) {
        Raise(Code::RecordTooLong);
    }
    context.Input.ReadBytes(length, AllocateRecord(call, recordBuffer, length));
    context.Input.ReadTerminator();
    return true;
}

uint32_t GroupNumberOfKey(FileCall& call, uint32_t keyBuffer) {
    if (!call.File->HeaderIsLoaded()) {
        const PrimaryAttachment attachment(*call.File);
    }
    const uint32_t modulo = call.File->Modulo;
    return GroupOf(HashKey(call.Session->Buffers.Get(keyBuffer)), modulo);
}

}  // namespace qx
