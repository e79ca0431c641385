// Files: positioned transfers, sizes, sharing modes and byte-range locks.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/system_error.h"

namespace qx {

// An open file of the operating system; all bits set stands for none.
using OsHandle = uint32_t;
inline constexpr OsHandle kNoOsHandle = 0xFFFFFFFF;

enum class Access : uint8_t { ReadOnly, ReadWrite };

// How a handle gets on with the other open handles on its file, in all processes. None neither holds nor heeds a mode;
// it is for files that only carry byte locks or are read once.
enum class Sharing : uint8_t { None, Shared, Exclusive };

enum class LockMode : uint8_t { Shared, Exclusive };

class FileService {
  public:
    virtual ~FileService() = default;

    // None when the file exists, NotFound, NoHandles or Other.
    virtual SystemError Exists(const char* path) = 0;

    // Makes a new file for reading and writing; AlreadyExists when there is one.
    virtual SystemError Create(const char* path, Sharing sharing, OsHandle* handle) = 0;

    // Opens an existing file; InUse when the sharing modes of other handles do not allow it.
    virtual SystemError Open(const char* path, Access access, Sharing sharing, OsHandle* handle) = 0;

    // Gives up the sharing mode and every lock.
    virtual void Close(OsHandle handle) = 0;

    // Deleting has two steps, so that several files can be removed together or not at all: a claim fails with InUse
    // while any process has the file open and keeps it from being opened; a claimed file is removed, or released by
    // Close.
    virtual SystemError ClaimForDelete(const char* path, OsHandle* claim) = 0;
    virtual SystemError DeleteClaimed(const char* path, OsHandle claim) = 0;

    // Transfer `length` bytes at `offset`; any number of threads may do so on one handle at once. A file that ends
    // early gives EndOfFile.
    virtual SystemError Read(OsHandle handle, uint64_t offset, void* buffer, size_t length) = 0;
    virtual SystemError Write(OsHandle handle, uint64_t offset, const void* buffer, size_t length) = 0;

    virtual SystemError GetSize(OsHandle handle, uint64_t* size) = 0;
    virtual SystemError SetSize(OsHandle handle, uint64_t size) = 0;
    virtual SystemError Flush(OsHandle handle) = 0;

    // One attempt at a byte-range lock; InUse when another handle holds a conflicting one. Positions are 64-bit; a
    // system with signed positions drops the top bit.
    virtual SystemError TryLock(OsHandle handle, uint64_t offset, uint32_t length, LockMode mode) = 0;
    virtual SystemError Unlock(OsHandle handle, uint64_t offset, uint32_t length) = 0;
};

}  // namespace qx
