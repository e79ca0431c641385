#include "files/os_file.h"

#include <algorithm>
#include <limits>
#include <string>

#include "platform/platform.h"
#include "runtime/library_record.h"

namespace qx {

namespace {

FileResult NamedResult(SystemError error) {
    switch (error) {
        case SystemError::None:
            return FileResult::Done;
        case SystemError::NoHandles:
            return FileResult::Exhausted;
        default:
            return FileResult::Failed;
    }
}

FileResult TransferResult(SystemError error, SystemError exhausted) {
    if (error == SystemError::None) {
        return FileResult::Done;
    }
    return error == exhausted ? FileResult::Exhausted : FileResult::Failed;
}

bool IsOnThisComputer(std::string_view path) {
    const std::string_view host = theLibrary.Host();
    return path.size() > 2 + host.size() && path.substr(2, host.size()) == host && path[2 + host.size()] == '\\';
}

// A canonical name as the operating system wants it; empty when it names nothing that this computer can reach.
SystemError MakeLocalName(std::string_view name, std::string* local) {
    if (!name.starts_with("\\\\")) {
        return SystemError::None;
    }
    if (IsOnThisComputer(name)) {
        *local = name.substr(2 + theLibrary.Host().size());
        std::replace(local->begin(), local->end(), '\\', '/');
        return SystemError::None;
    }
    std::optional<MountTable> mounts;
    const SystemError error = ReadMounts(&mounts);
    if (error == SystemError::None) {
        *local = mounts->LocalPathOf(name).value_or("");
    }
    return error;
}

template <class Operation>
FileResult OnLocalName(std::string_view name, Operation&& operation) {
    std::string local;
    const SystemError error = MakeLocalName(name, &local);
    return NamedResult(error != SystemError::None ? error : operation(local.c_str()));
}

uint64_t Offset(uint32_t unit, uint32_t index) {
    return uint64_t{unit} * index;
}

}  // namespace

SystemError ReadMounts(std::optional<MountTable>* mounts) {
    std::string table;
    const SystemError error = thePlatform.Directories->MountTable(&table);
    if (error == SystemError::None) {
        mounts->emplace(table, theLibrary.Host());
    }
    return error;
}

FileResult OsFileExists(std::string_view name) {
    return OnLocalName(name, [](const char* path) { return thePlatform.Files->Exists(path); });
}

FileResult OsCreateFile(std::string_view name, Sharing sharing, OsHandle* handle) {
    return OnLocalName(name, [&](const char* path) { return thePlatform.Files->Create(path, sharing, handle); });
}

FileResult OsOpenFile(std::string_view name, Access access, Sharing sharing, OsHandle* handle) {
    return OnLocalName(name, [&](const char* path) { return thePlatform.Files->Open(path, access, sharing, handle); });
}

FileResult OsClaimForDelete(std::string_view name, OsHandle* claim) {
    return OnLocalName(name, [&](const char* path) { return thePlatform.Files->ClaimForDelete(path, claim); });
}

FileResult OsDeleteClaimed(std::string_view name, OsHandle claim) {
    return OnLocalName(name, [&](const char* path) { return thePlatform.Files->DeleteClaimed(path, claim); });
}

FileResult OsRead(OsHandle handle, uint32_t unit, uint32_t index, void* buffer, uint32_t length) {
    return TransferResult(thePlatform.Files->Read(handle, Offset(unit, index), buffer, length), SystemError::EndOfFile);
}

FileResult OsWrite(OsHandle handle, uint32_t unit, uint32_t index, uint32_t extra, const void* buffer,
                   uint32_t length) {
    return TransferResult(thePlatform.Files->Write(handle, Offset(unit, index) + extra, buffer, length),
                          SystemError::VolumeFull);
}

bool OsGetSize(OsHandle handle, uint32_t unit, uint32_t* count) {
    uint64_t size = 0;
    if (thePlatform.Files->GetSize(handle, &size) != SystemError::None) {
        return false;
    }
    *count = static_cast<uint32_t>(std::min<uint64_t>(size / unit, std::numeric_limits<uint32_t>::max()));
    return true;
}

bool OsSetSize(OsHandle handle, uint32_t unit, uint32_t count) {
    return thePlatform.Files->SetSize(handle, Offset(unit, count)) == SystemError::None;
}

bool OsFlush(OsHandle handle) {
    return thePlatform.Files->Flush(handle) == SystemError::None;
}

void OsClose(OsHandle handle) {
    thePlatform.Files->Close(handle);
}

}  // namespace qx
