#pragma once

#include "platform/file_service.h"

namespace qx {

class PosixFileService final : public FileService {
  public:
    SystemError Exists(const char* path) override;
    SystemError Create(const char* path, Sharing sharing, OsHandle* handle) override;
    SystemError Open(const char* path, Access access, Sharing sharing, OsHandle* handle) override;
    void Close(OsHandle handle) override;
    SystemError ClaimForDelete(const char* path, OsHandle* claim) override;
    SystemError DeleteClaimed(const char* path, OsHandle claim) override;
    SystemError Read(OsHandle handle, uint64_t offset, void* buffer, size_t length) override;
    SystemError Write(OsHandle handle, uint64_t offset, const void* buffer, size_t length) override;
    SystemError GetSize(OsHandle handle, uint64_t* size) override;
    SystemError SetSize(OsHandle handle, uint64_t size) override;
    SystemError Flush(OsHandle handle) override;
    SystemError TryLock(OsHandle handle, uint64_t offset, uint32_t length, LockMode mode) override;
    SystemError Unlock(OsHandle handle, uint64_t offset, uint32_t length) override;
};

}  // namespace qx
