#include "records/find.h"

#include "records/group_rule.h"
#include "storage/layout/frame_header.h"

namespace qx {

namespace {

// Whether the frame just read belongs to a distribution in which the key's group is the one that the cursor is in.
bool StampAgrees(const InputCursor& input, uint32_t hash, uint32_t modulo) {
    const uint32_t stamp = ModuloStamp(input.Buffer);
    return stamp == modulo || GroupOf(hash, stamp) == input.Group;
}

}  // namespace

void LocateAndLock(OperationContext& context, uint32_t hash, bool exclusive) {
    InputCursor& input = context.Input;
    const uint32_t known = context.File.Modulo;
    const uint32_t first = GroupOf(hash, known);
    input.Group = first;
    context.SlotOf(first).Lock(first, exclusive);
    if (input.ReadPrimaryFrame(ShortRead::Allow) && StampAgrees(input, hash, known)) {
        return;
    }
    if (first != kHeaderGroup) {
        context.GroupLock.Release();
        ReadHeader(context, exclusive ? HeaderAccess::Exclusive : HeaderAccess::Shared);
    }
    const uint32_t fresh = context.File.Modulo;
    const uint32_t second = GroupOf(hash, fresh);
    input.Group = second;
    if (second != kHeaderGroup) {
        context.GroupLock.Lock(second, exclusive);
        context.HeaderLock.Release();
    }
    input.ReadPrimaryFrame(ShortRead::Fail);
    if (!StampAgrees(input, hash, fresh)) {
        Raise(Code::GroupMoved, 1);
    }
}

bool FindRecord(OperationContext& context, std::string_view key, bool exclusive, FramePlace* start) {
    LocateAndLock(context, HashKey(key), exclusive);
    InputCursor& input = context.Input;
    while (!input.AtEndOfGroup()) {
        *start = input.Place;
        input.ReadRecordHeader();
        if (input.MatchKey(key)) {
            return true;
        }
        input.SkipRecordData();
    }
    return false;
}

}  // namespace qx
