#include "files/os_file.h"

#include <algorithm>
#include <limits>

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

uint64_t Offset(uint32_t unit, uint32_t index) {
    return uint64_t{unit} * index;
}

}  // namespace

std::string LocalName(std::string_view canonicalName) {
    const std::string_view host = theLibrary.Host();
    const size_t prefix = 2 + host.size();
    if (canonicalName.size() <= prefix || !canonicalName.starts_with("\\\\") ||
        canonicalName.substr(2, host.size()) != host || canonicalName[prefix] != '\\') {
        return {};
    }
    std::string local(canonicalName.substr(prefix));
    std::replace(local.begin(), local.end(), '\\', '/');
    return local;
}

FileResult OsFileExists(std::string_view name) {
    return NamedResult(thePlatform.Files->Exists(LocalName(name).c_str()));
}

FileResult OsCreateFile(std::string_view name, Sharing sharing, OsHandle* handle) {
    return NamedResult(thePlatform.Files->Create(LocalName(name).c_str(), sharing, handle));
}

FileResult OsOpenFile(std::string_view name, Access access, Sharing sharing, OsHandle* handle) {
    return NamedResult(thePlatform.Files->Open(LocalName(name).c_str(), access, sharing, handle));
}

FileResult OsClaimForDelete(std::string_view name, OsHandle* claim) {
    return NamedResult(thePlatform.Files->ClaimForDelete(LocalName(name).c_str(), claim));
}

FileResult OsDeleteClaimed(std::string_view name, OsHandle claim) {
    return NamedResult(thePlatform.Files->DeleteClaimed(LocalName(name).c_str(), claim));
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

FileResult OsReserve(OsHandle handle, uint32_t unit, uint32_t index, uint32_t count) {
    return TransferResult(thePlatform.Files->Reserve(handle, Offset(unit, index), Offset(unit, count)),
                          SystemError::VolumeFull);
}

void OsClose(OsHandle handle) {
    thePlatform.Files->Close(handle);
}

}  // namespace qx
