#include "storage/name_resolution.h"

#include <optional>
#include <utility>

namespace qx {

namespace {

OpenFile* FindOpenFile(std::string_view volumeName, std::string_view fileName) {
    const auto volume = Volumes().find(volumeName);
    if (volume == Volumes().end()) {
        return nullptr;
    }
    const auto file = volume->second->Files.find(fileName);
    return file == volume->second->Files.end() ? nullptr : file->second;
}

bool Exists(const OpenFile* file, const CanonicalPath& path) {
    if (file != nullptr && file->PrimaryPart.Cached.IsOpen()) {
        return true;
    }
    const FileResult result = CacheFileExists(path.Path + std::string(kPrimaryExtension));
    if (result == FileResult::Exhausted) {
        Raise(Code::NoFileHandle, Number(WhichFile::Primary));
    }
    return result == FileResult::Done;
}

OpenFile* MakeOpenFile(std::string_view name, VolumeRecord& volume) {
    OwnedRecord<OpenFile> file(theRecordHeap.Make<OpenFile>(name, volume));
    volume.Files.emplace(file->Name, file.get());
    for (CounterSet* level : {&theProcessCounters, &volume.Counters}) {
        level->Enter(Counter::ActiveFiles, Counter::PeakActiveFiles);
        level->Increment(Counter::AddFiles);
    }
    return file.release();
}

}  // namespace

CanonicalPath PathOfName(std::string_view name, PathEnd end) {
    if (name.size() > kLongestName) {
        Raise(Code::NameTooLong);
    }
    std::optional<CanonicalPath> path = MakeCanonicalPath(name, end);
    if (!path) {
        Raise(Code::BadPath);
    }
    return std::move(*path);
}

ResolvedFile::ResolvedFile(SessionRecord& session, uint32_t sessionHandle, const CanonicalPath& path,
                           Existence expected)
    : Session(session) {
    OpenFile* file = FindOpenFile(path.Volume(), path.FileName());
    const bool exists = Exists(file, path);
    if (exists != (expected == Existence::MustExist)) {
        Raise(exists ? Code::FileExists : Code::FileNotFound, Number(WhichFile::Primary));
    }
    VolumeRecord& volume = VolumeOf(path.Volume(), path.RootLength);
    Use = &UseVolume(session, sessionHandle, volume);
    struct LeaveOnFailure {
        ResolvedFile& Of;
        ~LeaveOnFailure() {
            if (Of.File == nullptr) {
                LeaveVolume(Of.Session, *Of.Use);
            }
        }
    } const leaveOnFailure{*this};
    File = file != nullptr ? file : MakeOpenFile(path.FileName(), volume);
    Levels = {&session.Counters, &volume.Counters, &File->Counters, nullptr};
}

ResolvedFile::~ResolvedFile() {
    if (File->Handles.IsEmpty()) {
        ForgetOpenFile(*File);
    }
    LeaveVolume(Session, *Use);
}

void ForgetOpenFile(OpenFile& file) {
    VolumeRecord& volume = file.Volume;
    volume.Files.erase(file.Name);
    theRecordHeap.End(&file);
    theProcessCounters.Leave(Counter::ActiveFiles);
    volume.Counters.Leave(Counter::ActiveFiles);
}

}  // namespace qx
