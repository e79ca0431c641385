#include "storage/walk_position.h"

#include "storage/layout/little_endian.h"
#include "storage/operation_context.h"
#include "storage/select_hold.h"

namespace qx {

namespace {

constexpr uint32_t kPositionBytes = 8;

// A walk ends the state in which a file may only grow; otherwise the header is written when the walk has counted every
// group and found other values than the stored ones.
bool HeaderNeedsWriting(OpenFile& file) {
    if ((file.SizeLock & 1) != 0) {
        return true;
    }
    return (file.SizeLock > 1 || file.SelectCount > 0) && file.Counts.ModuloVerified() == file.Modulo &&
           file.Counts.DifferFromStored(file.Group0HeaderSize);
}

void WriteHeaderAfterWalk(FileCall& call) {
    OpenFile& file = *call.File;
    OperationContext context(file, call.Levels);
    if (!call.MayWrite() || !HeaderNeedsWriting(file)) {
        return;
    }
    ReadHeader(context, HeaderAccess::Exclusive);
    const bool needed = HeaderNeedsWriting(file);
    file.SizeLock = file.SizeLock & ~uint32_t{1};
    if (needed) {
        WriteHeader(context);
    }
}

}  // namespace

void LoadPosition(FileCall& call) {
    FileHandle& handle = *call.Handle;
    const std::string_view bytes = call.Session->Buffers.Get(handle.PositionObject);
    if (bytes.empty()) {
        handle.PositionStart = kNoWalk;
        handle.PositionEnd = kNoWalk;
    } else if (bytes.size() == kPositionBytes) {
        const auto* from = reinterpret_cast<const uint8_t*>(bytes.data());
        handle.PositionStart = LoadLittleEndian<uint32_t>(from);
        handle.PositionEnd = LoadLittleEndian<uint32_t>(from + 4);
    } else {
        Raise(Code::BufferRefused);
    }
}

void StorePosition(FileCall& call) {
    const FileHandle& handle = *call.Handle;
    if (!WalkIsUnderWay(call)) {
        call.Session->Buffers.Allocate(handle.PositionObject, 0);
        return;
    }
    uint8_t* to = call.Session->Buffers.AllocateExactly(handle.PositionObject, kPositionBytes).data();
    StoreLittleEndian(to, handle.PositionStart);
    StoreLittleEndian(to + 4, handle.PositionEnd);
}

void EndWalk(FileCall& call) {
    FileHandle& handle = *call.Handle;
    handle.PositionStart = kNoWalk;
    handle.PositionEnd = kNoWalk;
    FirstFailure failure;
    failure.Run([&] { WriteHeaderAfterWalk(call); });
    if (handle.WalkHasHold) {
        handle.WalkHasHold = false;
        ReleaseSelectHold(call);
    }
    failure.RaiseIfAny();
}

void EndOpenWalk(FileCall& call) {
    if (WalkIsUnderWay(call)) {
        const PrimaryAttachment attachment(*call.File);
        EndWalk(call);
    }
}

}  // namespace qx
