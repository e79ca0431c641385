#include "storage/remote_handle.h"

#include "runtime/counters.h"
#include "runtime/library_record.h"
#include "runtime/record_heap.h"
#include "storage/file_handle.h"

namespace qx {

namespace {

// Of a delimiter the low byte counts, and whether the word as a whole is 0.
uint16_t DelimiterToSend(uint32_t delimiter) {
    return static_cast<uint16_t>(delimiter <= 0xFFFF ? delimiter : 0x100 | (delimiter & 0xFF));
}

OpenFileRequest RequestFor(uint32_t serverSession, const OpenOptions& options) {
    OpenFileRequest request;
    request.Session = serverSession;
    request.ReuseHandle = Saturated<uint8_t>(options.ReuseHandle);
    request.ReadOnly = Saturated<uint8_t>(options.ReadOnly);
    request.SelectDelimiter = DelimiterToSend(options.SelectDelimiter);
    request.SelectMinimumSize = options.SelectMinimumSize;
    request.TrimLastDelimiter = Saturated<uint8_t>(options.TrimLastDelimiter);
    request.PositionObjectInUse = Saturated<uint8_t>(options.PositionObjectInUse);
    return request;
}

uint32_t FindHandle(const RemoteSession& remote, uint32_t serverFile) {
    HandleTable& table = theLibrary.Files;
    uint32_t handle = remote.Files.Head();
    while (handle != kNoHandle && table.PayloadOf<FileHandle>(handle)->Remote->ServerFile != serverFile) {
        handle = HandleList::Next<&FileHandle::VolumeLinks>(table, handle);
    }
    return handle;
}

void CloseOnServer(const RemoteFile& file) {
    CallServer(file.Session.Connection, FileRequest<Opcode::CloseFile>{file.ServerFile});
}

// A handle record for a file that the server has opened; without memory for it the server closes the file again.
FileHandle& MakeHandle(const RemoteFile& file, uint32_t* handle) {
    FileHandle* record = nullptr;
    FirstFailure failure;
    if (!failure.Run([&] { record = theLibrary.Files.Allocate<FileHandle>(handle); })) {
        failure.Run([&] { CloseOnServer(file); });
    }
    failure.RaiseIfAny();
    return *record;
}

}  // namespace

uint32_t OpenRemoteHandle(const ServedName& name, SessionRecord& session, uint32_t sessionHandle,
                          const OpenOptions& options) {
    HandleTable& table = theLibrary.Files;
    OwnedRecord<RemoteFile> file(theRecordHeap.Make<RemoteFile>(name.Session));
    if (options.PositionObjectInUse != 0) {
        file->Position = ReceiveTransfer(session.Buffers.Callback(), options.PositionObject);
    }
    file->ServerFile = CallServer(name.Session.Connection, RequestFor(name.Session.ServerSession, options),
                                  file->Position, PlainTransfer(name.Name))
                           .Number;
    if (options.ReuseHandle != 0) {
        const uint32_t own = FindHandle(name.Session, file->ServerFile);
        if (own != kNoHandle) {
            return own;
        }
    }
    if (options.PositionObjectInUse != 0) {
        file->Position = SendTransfer(session.Buffers.Callback(), options.PositionObject);
    }
    uint32_t handle = kNoHandle;
    FileHandle& record = MakeHandle(*file, &handle);
    record.Session = sessionHandle;
    record.Remote = file.release();
    session.Files.Append<&FileHandle::SessionLinks>(table, handle);
    name.Session.Files.Append<&FileHandle::VolumeLinks>(table, handle);
    CounterLevels{.Session = &session.Counters}.EnterSessionFile();
    table.EndOpen(handle);
    return handle;
}

void CloseRemoteHandle(SessionRecord& session, uint32_t handle) {
    HandleTable& table = theLibrary.Files;
    const OwnedRecord<RemoteFile> file(table.PayloadOf<FileHandle>(handle)->Remote);
    session.Files.Remove<&FileHandle::SessionLinks>(table, handle);
    file->Session.Files.Remove<&FileHandle::VolumeLinks>(table, handle);
    CounterLevels{.Session = &session.Counters}.LeaveSessionFile();
    table.Free<FileHandle>(handle);
    CloseOnServer(*file);
}

}  // namespace qx
