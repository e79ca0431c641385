#include "storage/file_opening.h"

#include <optional>

#include "storage/operation_context.h"
#include "storage/resize_queue.h"
#include "storage/select_hold.h"
#include "storage/session_locks.h"
#include "storage/walk_position.h"

namespace qx {

namespace {

struct OwnHandle {
    uint32_t Number = kNoHandle;
    FileHandle* Handle = nullptr;
};

bool IsBeingClosed(uint32_t handle) {
    StatusRecord closed{};
    return !RunCatching(closed, [handle] {
        HandleTable::Leave(theLibrary.Files.Enter<FileHandle>(handle));
        return true;
    });
}

OwnHandle FindHandleOfSession(OpenFile& file, uint32_t sessionHandle) {
    HandleTable& table = theLibrary.Files;
    for (uint32_t handle = file.Handles.Head(); handle != kNoHandle;
         handle = HandleList::Next<&FileHandle::FileLinks>(table, handle)) {
        auto* record = table.PayloadOf<FileHandle>(handle);
        if (record->Session == sessionHandle && !IsBeingClosed(handle)) {
            return {handle, record};
        }
    }
    return {};
}

void ApplyOptions(const OpenOptions& options, FileHandle& handle) {
    handle.ReadOnly = handle.ReadOnly || options.ReadOnly != 0;
    if (options.SelectDelimiter != 0) {
        handle.SelectDelimiter = options.SelectDelimiter;
    }
    handle.SelectMinimumSize = options.SelectMinimumSize;
    handle.TrimLastDelimiter = options.TrimLastDelimiter != 0;
    if (options.PositionObjectInUse != 0) {
        handle.PositionObjectInUse = true;
        handle.PositionObject = options.PositionObject;
    }
}

// Opens the file early, so that the first record operation need not. What is wrong with it is told by that operation.
void AttachEarly(OpenFile& file) {
    StatusRecord ignored{};
    RunCatching(ignored, [&] {
        const PrimaryAttachment attachment(file);
        return true;
    });
}

// Keeps the worker away from a file whose last handle is being closed. It is waited for, whatever it takes: the file's
// record goes away with the handle.
class LastClose {
  public:
    explicit LastClose(OpenFile& file) : hold_(file.StructureMutex) { theResizeQueue.Remove(file); }

  private:
    const PatientClaimHold hold_;
};

void WriteCountsBack(FileCall& call) {
    OpenFile& file = *call.File;
    if (!call.MayWrite() || !file.Counts.DifferFromStored(file.Group0HeaderSize)) {
        return;
    }
    const PrimaryAttachment attachment(file);
    OperationContext context(file, call.Levels);
    WriteHeaderIfDifferent(context);
}

}  // namespace

uint32_t OpenLocalHandle(ResolvedFile& resolved, uint32_t sessionHandle, const OpenOptions& options) {
    HandleTable& table = theLibrary.Files;
    OpenFile& file = *resolved.File;
    const OwnHandle own = FindHandleOfSession(file, sessionHandle);
    if (own.Handle != nullptr && options.ReuseHandle != 0) {
        own.Handle->Counters.Increment(Counter::OpenFiles);
        return own.Number;
    }
    const bool readOnly = own.Handle != nullptr ? own.Handle->ReadOnly : file.OpenedReadOnly.load();
    const bool isFirst = file.Handles.IsEmpty();
    uint32_t handle = kNoHandle;
    auto* record = table.Allocate<FileHandle>(&handle);
    record->Session = sessionHandle;
    record->Use = resolved.Use;
    record->File = &file;
    record->Counters.PutBelow(resolved.Session.Counters);
    record->Counters.PutBelow(file.Counters);
    record->ReadOnly = readOnly;
    ApplyOptions(options, *record);
    resolved.Session.Files.Append<&FileHandle::SessionLinks>(table, handle);
    resolved.Use->Files.Append<&FileHandle::VolumeLinks>(table, handle);
    file.Handles.Append<&FileHandle::FileLinks>(table, handle);
    resolved.Levels.EnterSessionFile();
    record->Counters.Increment(Counter::OpenFiles);
    table.EndOpen(handle);
    if (isFirst && !file.OpenedReadOnly) {
        AttachEarly(file);
    }
    return handle;
}

void WindUpLocalHandle(FileCall& call) {
    ReleaseLocksOfHandle(call);
    EndOpenWalk(call);
}

void CloseLocalHandle(FileCall& call) {
    HandleTable& table = theLibrary.Files;
    OpenFile& file = *call.File;
    VolumeUse& use = *call.Handle->Use;
    FirstFailure failure;
    ReleaseAllSelectHolds(call);
    std::optional<LastClose> lastClose;
    if (file.Handles.Head() == call.HandleNumber &&
        HandleList::Next<&FileHandle::FileLinks>(table, call.HandleNumber) == kNoHandle) {
        lastClose.emplace(file);
    }
    failure.Run([&] { WriteCountsBack(call); });
    call.Session->Files.Remove<&FileHandle::SessionLinks>(table, call.HandleNumber);
    use.Files.Remove<&FileHandle::VolumeLinks>(table, call.HandleNumber);
    file.Handles.Remove<&FileHandle::FileLinks>(table, call.HandleNumber);
    call.Levels.LeaveSessionFile();
    table.Free<FileHandle>(call.HandleNumber);
    if (lastClose) {
        if (failure.Good()) {
            failure.Run([&] { FlushFile(file); });
        }
        CloseParts(file);
        lastClose.reset();
        ForgetOpenFile(file);
    }
    LeaveVolume(*call.Session, use);
    failure.RaiseIfAny();
}

void FlushSession(SessionRecord& session) {
    FirstFailure failure;
    HandleTable& table = theLibrary.Files;
    for (uint32_t handle = session.Files.Head(); handle != kNoHandle;
         handle = HandleList::Next<&FileHandle::SessionLinks>(table, handle)) {
        const auto* record = table.PayloadOf<FileHandle>(handle);
        if (!record->IsRemote()) {
            failure.Run([&] { FlushFile(*record->File); });
        }
    }
    failure.RaiseIfAny();
}

}  // namespace qx
