#include "storage/file_creation.h"

#include "runtime/work_area.h"
#include "storage/attachment.h"
#include "storage/layout/empty_group.h"

namespace qx {

namespace {

[[noreturn]] void RaiseFileFailure(FileResult result, Code code, WhichFile file) {
    Raise(result == FileResult::Exhausted ? Code::NoFileHandle : code, Number(file));
}

void RemoveOldOverflow(const std::string& path) {
    FileResult result = CacheFileExists(path);
    if (result == FileResult::Done) {
        result = CacheDeleteFile(path);
        if (result != FileResult::Done) {
            RaiseFileFailure(result, Code::WriteFailed, WhichFile::Overflow);
        }
    } else if (result == FileResult::Exhausted) {
        RaiseFileFailure(result, Code::WriteFailed, WhichFile::Overflow);
    }
}

// A file that is being made: closed when this ends, and deleted too unless it was kept.
class NewFile {
  public:
    NewFile(OpenFile& file, WhichFile which) : path_(file.PathOf(which)), cached_(file.Part(which).Cached) {
        const FileResult result = CacheCreateFile(path_, Sharing::Shared, cached_);
        if (result != FileResult::Done) {
            RaiseFileFailure(result, Code::CreateFailed, which);
        }
    }

    ~NewFile() {
        Close();
        if (!kept_) {
            StatusRecord ignored{};
            RunCatching(ignored, [this] { return CacheDeleteFile(path_) == FileResult::Done; });
        }
    }

    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void Mark(const VolumeRecord& volume) { MarkFile(volume, cached_, Access::ReadWrite); }

    OsHandle Handle() const { return cached_.Handle; }

    void Close() {
        if (cached_.IsOpen()) {
            CacheCloseFile(cached_);
        }
    }

    void Keep() { kept_ = true; }

  private:
    const std::string path_;
    CachedFile& cached_;
    bool kept_ = false;
};

// Every frame is tried, also after one could not be written.
void WriteGroups(OsHandle handle, const FileHeader& header, uint8_t fill, uint8_t* frame, const CounterLevels& levels) {
    FirstFailure failure;
    MakeEmptyHeaderGroup(header, fill, frame);
    for (uint32_t group = 0; group < header.Modulo; ++group) {
        theProcessCounters.Increment(Counter::WriteFrames);
        const FileResult result = OsWrite(handle, header.FrameSize, group, 0, frame, header.FrameSize);
        if (result == FileResult::Exhausted) {
            levels.CountWork(Counter::VolumeFullErrors);
            failure.Note(MakeStatus(Code::VolumeFull, Number(WhichFile::Primary), group));
        } else if (result == FileResult::Failed) {
            levels.CountWork(Counter::WriteErrors);
            failure.Note(MakeStatus(Code::WriteFailed, Number(WhichFile::Primary), group));
        }
        if (group == 0) {
            TurnIntoEmptyGroup(fill, frame);
        }
    }
    failure.RaiseIfAny();
}

}  // namespace

void CreateHashedFile(OpenFile& file, const FileHeader& header, const CounterLevels& levels) {
    const VolumeSettings& settings = file.Volume.Settings;
    if (!file.Handles.IsEmpty()) {
        Raise(Code::Busy);
    }
    if (settings.ReadOnly) {
        Raise(Code::ReadOnly, 1);
    }
    if (!HasHighParts(header.HeaderLength) && header.FrameSize > kLargestFrame110) {
        Raise(Code::CreateFailed, Number(WhichFile::Primary));
    }
    // A primary file that has appeared meanwhile keeps its overflow file.
    NewFile primary(file, WhichFile::Primary);
    primary.Mark(file.Volume);
    RemoveOldOverflow(file.PathOf(WhichFile::Overflow));
    if (!OsSetSize(primary.Handle(), header.FrameSize, header.Modulo)) {
        levels.CountWork(Counter::WriteErrors);
        Raise(Code::WriteFailed, Number(WhichFile::Primary), header.Modulo - 1);
    }
    {
        WorkArea frame(header.FrameSize);
        const auto fill = static_cast<uint8_t>(settings.FillCharacter);
        WriteGroups(primary.Handle(), header, fill, frame.Bytes(), levels);
    }
    if ((settings.FlushAllUpdates || settings.FlushFileSizeUpdates) && !OsFlush(primary.Handle())) {
        levels.CountWork(Counter::WriteErrors);
        Raise(Code::WriteFailed, Number(WhichFile::Primary));
    }
    primary.Close();
    NewFile overflow(file, WhichFile::Overflow);
    overflow.Mark(file.Volume);
    overflow.Keep();
    primary.Keep();
}

}  // namespace qx
