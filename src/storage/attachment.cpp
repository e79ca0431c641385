#include "storage/attachment.h"

#include "storage/layout/file_header.h"
#include "storage/resize_queue.h"
#include "volume/canonical_path.h"

namespace qx {

namespace {

void RaiseOpenFailure(FileResult result, WhichFile file) {
    Raise(result == FileResult::Exhausted ? Code::NoFileHandle : Code::OpenFailed, Number(file));
}

void OpenPrimary(OpenFile& file) {
    CachedFile& cached = file.PrimaryPart.Cached;
    const std::string path = file.PathOf(WhichFile::Primary);
    Access access = file.Volume.Settings.ReadOnly ? Access::ReadOnly : Access::ReadWrite;
    FileResult result = CacheOpenFile(path, access, Sharing::Shared, cached);
    if (result == FileResult::Failed && access != Access::ReadOnly) {
        access = Access::ReadOnly;
        result = CacheOpenFile(path, access, Sharing::Shared, cached);
    }
    if (result != FileResult::Done) {
        RaiseOpenFailure(result, WhichFile::Primary);
    }
    MarkFile(file.Volume, cached, access);
    LetCloseWhenIdle(cached);
    file.OpenedReadOnly = access == Access::ReadOnly;
    file.PrimaryPart.Written = false;
}

[[noreturn]] void FailToLoad(OpenFile& file) {
    file.Counters.Increment(Counter::ReadErrors);
    Raise(Code::ReadFailed, Number(WhichFile::Primary));
}

// A header that no file can have is refused here, so that everything after can rely on a frame that holds its header
// and fits the file.
void LoadHeader(OpenFile& file) {
    uint8_t bytes[kLongestFileHeader];
    const OsHandle handle = file.PrimaryPart.Cached.Handle;
    if (OsRead(handle, 1, 0, bytes, sizeof bytes) != FileResult::Done) {
        FailToLoad(file);
    }
    if (!IsFileHeaderLength(bytes[0])) {
        Raise(Code::BadFrameHeader, Number(WhichFile::Primary));
    }
    const FileHeader header = DecodeFileHeader(bytes);
    uint32_t wholeFrames = 0;
    if (IsPlausible(header) && !OsGetSize(handle, header.FrameSize, &wholeFrames)) {
        FailToLoad(file);
    }
    if (wholeFrames == 0) {
        Raise(Code::BadFrameHeader, Number(WhichFile::Primary));
    }
    file.FrameSize = header.FrameSize;
    file.Threshold = header.Threshold;
    file.ThresholdBytes = static_cast<uint32_t>((uint64_t{file.Threshold} * file.FrameSize) >> 8);
    file.MergeBytes = static_cast<uint32_t>(uint64_t{file.ThresholdBytes} * 9 / 10);
    file.Modulo = header.Modulo;
    file.SizeLock = header.SizeLock;
    file.Counts.Load(header);
    file.Group0HeaderSize.store(header.HeaderLength, std::memory_order_release);
}

void FlushPart(FilePart& part, WhichFile file) {
    if (!part.Written) {
        return;
    }
    OsHandle handle;
    {
        const ClaimHold hold(part.Cached.Mutex);
        handle = part.Cached.Handle;
        if (handle == kNoOsHandle) {
            return;
        }
        part.Cached.AddUser();
    }
    const bool good = !part.Written.exchange(false) || OsFlush(handle);
    part.Cached.Leave();
    if (!good) {
        Raise(Code::WriteFailed, Number(file));
    }
}

}  // namespace

std::string OpenFile::PathOf(WhichFile file) const {
    std::string path = Volume.Name;
    path += Name;
    path += file == WhichFile::Primary ? kPrimaryExtension : kOverflowExtension;
    return path;
}

PrimaryAttachment::PrimaryAttachment(OpenFile& file) : file_(file) {
    CachedFile& cached = file.PrimaryPart.Cached;
    if (cached.Join()) {
        return;
    }
    ClaimHold hold(cached.Mutex);
    if (!cached.IsOpen()) {
        OpenPrimary(file);
    }
    const bool load = !file.HeaderIsLoaded();
    if (load) {
        LoadHeader(file);
    }
    cached.Admit();
    hold.Release();
    if (load) {
        theResizeQueue.Check(file);
    }
}

PrimaryAttachment::~PrimaryAttachment() {
    file_.PrimaryPart.Cached.Leave();
}

void OverflowAttachment::Attach(Missing missing) {
    if (attached_) {
        return;
    }
    CachedFile& cached = file_.OverflowPart.Cached;
    if (!cached.Join()) {
        const ClaimHold hold(cached.Mutex);
        if (!cached.IsOpen()) {
            Open(missing);
        }
        cached.Admit();
    }
    attached_ = true;
}

void OverflowAttachment::Open(Missing missing) {
    FilePart& part = file_.OverflowPart;
    const std::string path = file_.PathOf(WhichFile::Overflow);
    const Access access = file_.OpenedReadOnly ? Access::ReadOnly : Access::ReadWrite;
    FileResult result = CacheOpenFile(path, access, Sharing::Shared, part.Cached);
    if (result == FileResult::Failed && missing == Missing::Create && access != Access::ReadOnly) {
        const FileResult exists = CacheFileExists(path);
        if (exists == FileResult::Failed) {
            result = CacheCreateFile(path, Sharing::Shared, part.Cached);
        } else if (exists == FileResult::Exhausted) {
            result = exists;
        }
    }
    if (result != FileResult::Done) {
        RaiseOpenFailure(result, WhichFile::Overflow);
    }
    MarkFile(file_.Volume, part.Cached, access);
    LetCloseWhenIdle(part.Cached);
    part.Written = false;
}

OverflowAttachment::~OverflowAttachment() {
    if (attached_) {
        file_.OverflowPart.Cached.Leave();
    }
}

void MarkFile(const VolumeRecord& volume, CachedFile& cached, Access access) {
    if (volume.Settings.ReadOnly || !volume.Locks.Supported || !volume.Settings.CacheFlushLocks) {
        return;
    }
    const FileResult result = TakeUserSlotMarker(cached, volume.Locks.UserSlot, access);
    if (result != FileResult::Done) {
        CacheCloseFile(cached);
        Raise(result == FileResult::Failed ? Code::MarkerHeld : Code::MarkerFailed);
    }
}

void FlushFile(OpenFile& file) {
    FlushPart(file.PrimaryPart, WhichFile::Primary);
    FlushPart(file.OverflowPart, WhichFile::Overflow);
}

void CloseParts(OpenFile& file) {
    for (const WhichFile which : {WhichFile::Primary, WhichFile::Overflow}) {
        FilePart& part = file.Part(which);
        const PatientClaimHold hold(part.Cached.Mutex);
        if (which == WhichFile::Primary) {
            file.Group0HeaderSize = 0;
        }
        if (part.Cached.IsOpen()) {
            CloseShared(part.Cached);
        }
    }
}

}  // namespace qx
