#include "storage/attachment.h"

#include "storage/layout/file_header.h"
#include "storage/resize_queue.h"

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

// Under the entry's mutex: an open file that nobody uses any more is idle.
void AddToIdle(FilePart& part) {
    if (part.InUse == 0) {
        IdleListAdd(part.Cached);
    }
}

void RemoveFromIdle(FilePart& part) {
    if (part.InUse == 0) {
        IdleListRemove(part.Cached);
    }
}

// What does not change whether the file is in use needs no mutex: calls of several threads would queue up for it. True
// when there was another call for this one to join, or to leave behind.
bool JoinOthers(FilePart& part) {
    uint32_t users = part.InUse;
    while (users > 0) {
        if (part.InUse.compare_exchange_weak(users, users + 1)) {
            return true;
        }
    }
    return false;
}

bool LeaveOthers(FilePart& part) {
    uint32_t users = part.InUse;
    while (users > 1) {
        if (part.InUse.compare_exchange_weak(users, users - 1)) {
            return true;
        }
    }
    return false;
}

void Detach(FilePart& part) {
    if (LeaveOthers(part)) {
        return;
    }
    const OptionalClaimHold hold = OptionalClaimHold::Claim(part.Cached.Mutex);
    if (hold) {
        --part.InUse;
        AddToIdle(part);
    }
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
        RemoveFromIdle(part);
        ++part.InUse;
    }
    const bool good = !part.Written.exchange(false) || OsFlush(handle);
    {
        const ClaimHold hold(part.Cached.Mutex);
        --part.InUse;
        AddToIdle(part);
    }
    if (!good) {
        Raise(Code::WriteFailed, Number(file));
    }
}

}  // namespace

std::string OpenFile::PathOf(WhichFile file) const {
    std::string path = Volume.Name;
    path += Name;
    path += file == WhichFile::Primary ? ".LK" : ".OV";
    return path;
}

PrimaryAttachment::PrimaryAttachment(OpenFile& file) : file_(file) {
    FilePart& part = file.PrimaryPart;
    if (JoinOthers(part)) {
        if (file.HeaderIsLoaded()) {
            return;
        }
        Detach(part);  // only a flush was there
    }
    ClaimHold hold(part.Cached.Mutex);
    if (!part.Cached.IsOpen()) {
        OpenPrimary(file);
    } else {
        RemoveFromIdle(part);
    }
    if (file.HeaderIsLoaded()) {
        ++part.InUse;
        return;
    }
    {
        struct BackToIdle {
            FilePart& Part;
            ~BackToIdle() { AddToIdle(Part); }  // does nothing once the call is attached
        } const backToIdle{part};
        LoadHeader(file);
        ++part.InUse;
    }
    hold.Release();
    theResizeQueue.Check(file);
}

PrimaryAttachment::~PrimaryAttachment() {
    Detach(file_.PrimaryPart);
}

void OverflowAttachment::Attach(Missing missing) {
    if (attached_) {
        return;
    }
    FilePart& part = file_.OverflowPart;
    if (JoinOthers(part)) {
        attached_ = true;
        return;
    }
    const ClaimHold hold(part.Cached.Mutex);
    if (part.Cached.IsOpen()) {
        RemoveFromIdle(part);
    } else {
        Open(missing);
    }
    ++part.InUse;
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
    part.Written = false;
}

OverflowAttachment::~OverflowAttachment() {
    if (attached_) {
        Detach(file_.OverflowPart);
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
            RemoveFromIdle(part);
            CacheCloseFile(part.Cached);
        }
    }
}

}  // namespace qx
