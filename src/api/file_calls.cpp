// QXCreateFile, QXDeleteFile, QXOpenFile, QXCloseFile, QXClearFile, QXGetFileHeader, QXGetGroupNumber.
#include <algorithm>
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

// An exported function on a file's name: entered, counted, resolved, worked.
template <class Work>
int32_t NameOperation(uint32_t session, uint32_t name, Existence expected, Counter counter, StatusRecord* status,
                      Work&& work) noexcept {
    return ExportedCall(status, [&](StatusRecord&) {
        SessionEntry entry(session);
        entry.Count(counter);
        const ClaimHold api(theLibrary.ApiMutex);
        ResolvedFile resolved(*entry.Session, session, name, expected);
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
    return NameOperation(session, name, Existence::MustNotExist, Counter::CreateFiles, status,
                         [&](ResolvedFile& resolved) {
                             const FileHeader header = HeaderToCreate(ReadCallerRecord(options));
                             CreateHashedFile(*resolved.File, header, resolved.Levels);
                         });
}

int32_t QXDeleteFile(uint32_t session, uint32_t name, StatusRecord* status) {
    using namespace qx;
    return NameOperation(session, name, Existence::MustExist, Counter::DeleteFiles, status,
                         [&](ResolvedFile& resolved) { DeleteHashedFile(*resolved.File); });
}

int32_t QXOpenFile(uint32_t session, uint32_t name, const OpenOptions* options, uint32_t* file, StatusRecord* status) {
    using namespace qx;
    return NameOperation(session, name, Existence::MustExist, Counter::OpenFiles, status, [&](ResolvedFile& resolved) {
        *file = OpenHandle(resolved, session, ReadCallerRecord(options));
    });
}

int32_t QXCloseFile(uint32_t file, StatusRecord* status) {
    using namespace qx;
    return ExportedCall(status, [&](StatusRecord&) {
        FileEntry entry(file);
        const ClaimHold api(theLibrary.ApiMutex);
        ReleaseCallerGroupLockOf(*entry.Call.Session, file);
        entry.BeginClose();
        entry.Call.Levels.CountCall(Counter::CloseFiles);
        CloseHandle(entry.Call);
        return true;
    });
}

int32_t QXClearFile(uint32_t file, StatusRecord* status) {
    using namespace qx;
    return FileOperation(file, Counter::ClearFiles, status, [](FileCall& call, StatusRecord&) {
        ClearHashedFile(call);
        return true;
    });
}

int32_t QXGetFileHeader(uint32_t file, FileHeaderRecord* header, StatusRecord* status) {
    using namespace qx;
    return FileOperation(file, Counter::GetFileHeaders, status, [&](FileCall& call, StatusRecord&) {
        const PrimaryAttachment attachment(*call.File);
        OperationContext context(*call.File, call.Levels);
        ReadHeader(context, HeaderAccess::Shared);
        WriteCallerRecord(DescribeHeader(*call.File), header);
        return true;
    });
}

int32_t QXGetGroupNumber(uint32_t file, uint32_t key, uint32_t* group, StatusRecord* status) {
    using namespace qx;
    return FileOperation(file, Counter::GetGroupNumbers, status, [&](FileCall& call, StatusRecord&) {
        *group = GroupNumberOfKey(call, key);
        return true;
    });
}

}  // extern "C"
