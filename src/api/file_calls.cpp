// QXCreateFile, QXDeleteFile, QXOpenFile, QXCloseFile, QXClearFile, QXGetFileHeader, QXGetGroupNumber.
#include <algorithm>
#include <limits>
#include <optional>
#include <qx.h>

#include "api/caller_record.h"
#include "api/entry.h"
#include "records/read.h"
#include "storage/caller_group_lock.h"
#include "storage/file_clearing.h"
#include "storage/file_creation.h"
#include "storage/file_deletion.h"
#include "storage/file_opening.h"
#include "storage/name_resolution.h"
#include "storage/operation_context.h"
#include "storage/remote_handle.h"

namespace qx {

namespace {

// A word of 0 takes the default; the others are moved into their range.
FileHeader HeaderToCreate(const CreateOptions& options) {
    FileHeader header;
    if (options.Modulo != 0) {
        header.Modulo = options.Modulo;
    }
    if (options.FrameSize != 0) {
        header.FrameSize = std::max(options.FrameSize, kSmallestCreatedFrame);
    }
    if (options.Threshold != 0) {
        header.Threshold = static_cast<uint8_t>(std::clamp(options.Threshold, kSmallestThreshold, kLargestThreshold));
    }
    header.SizeLock = static_cast<uint16_t>(options.SizeLock);
    if (options.Version != 0 && options.Version != kVersion120) {
        header.HeaderLength = kHeaderLength110;
    }
    header.Alpha = EmptyAlpha(header.HeaderLength, header.Modulo);
    return header;
}

FileHeaderRecord DescribeHeader(OpenFile& file) {
    FileHeaderRecord record{};
    const RunningCounts::Values running = file.Counts.Running();
    record.Version = VersionOf(file.Group0HeaderSize);
    record.FrameSize = file.FrameSize;
    record.Threshold = file.Threshold;
    record.SizeLock = file.SizeLock;
    record.Modulo = file.Modulo;
    record.RecordCount = running.RecordCount;
    record.Alpha = static_cast<uint32_t>(running.Alpha);
    record.ModuloVerified = file.Counts.ModuloVerified() == file.Modulo ? 1 : 0;
    return record;
}

CreateFileRequest RequestFor(uint32_t serverSession, const FileHeader& header) {
    if (header.FrameSize > std::numeric_limits<uint16_t>::max()) {
        Raise(Code::CreateFailed, Number(WhichFile::Primary));  // the protocol has no room for such frames
    }
    CreateFileRequest request;
    request.Session = serverSession;
    request.Modulo = header.Modulo;
    request.FrameSize = static_cast<uint16_t>(header.FrameSize);
    request.Threshold = header.Threshold;
    request.SizeLock = header.SizeLock;
    request.Version = static_cast<uint16_t>(VersionOf(header.HeaderLength));
    return request;
}

FileHeaderRecord DescribeHeader(const GetFileHeaderResults& header) {
    FileHeaderRecord record{};
    record.Version = header.Version;
    record.FrameSize = header.FrameSize;
    record.Threshold = header.Threshold;
    record.SizeLock = header.SizeLock;
    record.Modulo = header.Modulo;
    record.RecordCount = header.RecordCount;
    record.Alpha = header.Alpha;
    record.ModuloVerified = header.ModuloVerified;
    return record;
}

// An exported function on a file's name: entered, counted, resolved, then forwarded to the file's server, or worked.
template <class Forward, class Work>
int32_t NameOperation(uint32_t session, uint32_t name, Existence expected, Counter counter, StatusRecord* status,
                      Forward&& forward, Work&& work) noexcept {
    return ExportedCall(status, [&](StatusRecord&) {
        SessionEntry entry(session);
        entry.Count(counter);
        const ClaimHold api(theLibrary.ApiMutex);
        const CanonicalPath path = PathOfName(entry.Session->Buffers.Get(name));
        if (const std::optional<ServedName> served = FindServer(*entry.Session, path)) {
            forward(*served, *entry.Session);
            return true;
        }
        ResolvedFile resolved(*entry.Session, session, path, expected);
        resolved.Levels.Volume->Increment(counter);
        resolved.Levels.File->Increment(counter);
        work(resolved);
        return true;
    });
}

}  // namespace

}  // namespace qx

extern "C" {

int32_t QXCreateFile(uint32_t session, uint32_t name, const CreateOptions* options, StatusRecord* status) {
    using namespace qx;
    const FileHeader header = HeaderToCreate(ReadCallerRecord(options));
    return NameOperation(
        session, name, Existence::MustNotExist, Counter::CreateFiles, status,
        [&](const ServedName& served, SessionRecord&) {
            CallServer(served.Session.Connection, RequestFor(served.Session.ServerSession, header),
                       PlainTransfer(served.Name));
        },
        [&](ResolvedFile& resolved) { CreateHashedFile(*resolved.File, header, resolved.Levels); });
}

int32_t QXDeleteFile(uint32_t session, uint32_t name, StatusRecord* status) {
    using namespace qx;
    return NameOperation(
        session, name, Existence::MustExist, Counter::DeleteFiles, status,
        [&](const ServedName& served, SessionRecord&) {
            CallServer(served.Session.Connection, SessionRequest<Opcode::DeleteFile>{served.Session.ServerSession},
                       PlainTransfer(served.Name));
        },
        [&](ResolvedFile& resolved) { DeleteHashedFile(*resolved.File); });
}

int32_t QXOpenFile(uint32_t session, uint32_t name, const OpenOptions* options, uint32_t* file, StatusRecord* status) {
    using namespace qx;
    OpenOptions wanted = ReadCallerRecord(options);
    if (wanted.Size < sizeof wanted) {
        wanted.PositionObjectInUse = 0;  // there is none without the object
    }
    return NameOperation(
        session, name, Existence::MustExist, Counter::OpenFiles, status,
        [&](const ServedName& served, SessionRecord& record) {
            *file = OpenRemoteHandle(served, record, session, wanted);
        },
        [&](ResolvedFile& resolved) { *file = OpenLocalHandle(resolved, session, wanted); });
}

int32_t QXCloseFile(uint32_t file, StatusRecord* status) {
    using namespace qx;
    return ExportedCall(status, [&](StatusRecord&) {
        FileEntry entry(file);
        ReleaseCallerGroupLockOf(entry.Session, file);
        ClaimHold api(theLibrary.ApiMutex);
        entry.BeginClose();
        ReleaseCallerGroupLockOf(entry.Session, file);  // that a call took while it could still come in
        LevelsOf(entry.Session, entry.Handle).CountEverywhere(Counter::CloseFiles);
        if (entry.Handle.IsRemote()) {
            CloseRemoteHandle(entry.Session, file);
            return true;
        }
        api.Release();
        FileCall call(entry.Session, file, entry.Handle);
        FirstFailure failure;
        failure.Run([&] { WindUpLocalHandle(call); });
        const PatientClaimHold again(theLibrary.ApiMutex);
        failure.Run([&] { CloseLocalHandle(call); });
        failure.RaiseIfAny();
        return true;
    });
}

int32_t QXClearFile(uint32_t file, StatusRecord* status) {
    using namespace qx;
    return FileOperation(
        file, Counter::ClearFiles, status, [](const RemoteFileCall& remote) { remote.Ask<Opcode::ClearFile>(); },
        [](FileCall& call, StatusRecord&) {
            ClearHashedFile(call);
            return true;
        });
}

int32_t QXGetFileHeader(uint32_t file, FileHeaderRecord* header, StatusRecord* status) {
    using namespace qx;
    return FileOperation(
        file, Counter::GetFileHeaders, status,
        [&](const RemoteFileCall& remote) {
            WriteCallerRecord(DescribeHeader(remote.Ask<Opcode::GetFileHeader>()), header);
        },
        [&](FileCall& call, StatusRecord&) {
            const PrimaryAttachment attachment(*call.File);
            OperationContext context(*call.File, call.Levels);
            ReadHeader(context, HeaderAccess::Shared);
            WriteCallerRecord(DescribeHeader(*call.File), header);
            return true;
        });
}

int32_t QXGetGroupNumber(uint32_t file, uint32_t key, uint32_t* group, StatusRecord* status) {
    using namespace qx;
    return FileOperation(
        file, Counter::GetGroupNumbers, status,
        [&](const RemoteFileCall& remote) { *group = remote.Ask<Opcode::GetGroupNumber>(remote.Send(key)).Number; },
        [&](FileCall& call, StatusRecord&) {
            *group = GroupNumberOfKey(call, key);
            return true;
        });
}

}  // extern "C"
