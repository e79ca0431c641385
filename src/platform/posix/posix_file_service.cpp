#include "platform/posix/posix_file_service.h"

#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/posix/posix_descriptors.h"

namespace qx {

namespace {

// Where a handle's sharing mode shows to other handles: one byte that no data and no other lock reaches.
constexpr uint64_t kSharingOffset = 0x7FFFFFFEFFFFFFFF;

// Positions of the operating system are signed.
constexpr uint64_t kPositionMask = 0x7FFFFFFFFFFFFFFF;

// One transfer stays below the limit of the system calls, whatever it is asked for.
constexpr size_t kLargestTransfer = size_t{1} << 30;

// How often a file is opened anew because it was removed in the same moment.
constexpr int kOpenAttempts = 16;

SystemError FromErrno(int error) {
    switch (error) {
        case 0:
            return SystemError::None;
        case ENOENT:
        case ENOTDIR:
            return SystemError::NotFound;
        case EEXIST:
            return SystemError::AlreadyExists;
        case EMFILE:
        case ENFILE:
            return SystemError::NoHandles;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return SystemError::VolumeFull;
        default:
            return SystemError::Other;
    }
}

int Descriptor(OsHandle handle) {
    return static_cast<int>(handle);
}

// pread and pwrite, but that a thread cannot be cancelled in them: it would leave a call half done, with its locks.
// What the C library does to make them points of cancellation takes as long as a good part of a transfer from memory.
static_assert(sizeof(off_t) == sizeof(long), "a position is one argument of a system call");

ssize_t ReadAt(int descriptor, void* to, size_t length, uint64_t offset) {
    return ::syscall(SYS_pread64, descriptor, to, length, static_cast<off_t>(offset));
}

ssize_t WriteAt(int descriptor, const void* from, size_t length, uint64_t offset) {
    return ::syscall(SYS_pwrite64, descriptor, from, length, static_cast<off_t>(offset));
}

// F_RDLCK, F_WRLCK or F_UNLCK on a range; 0 or the error number.
int SetLock(int descriptor, short type, uint64_t offset, uint32_t length) {
    struct flock range {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = static_cast<off_t>(offset & kPositionMask);
    range.l_len = static_cast<off_t>(length);
    int result;
    do {
        result = ::fcntl(descriptor, F_OFD_SETLK, &range);
    } while (result != 0 && errno == EINTR);
    return result == 0 ? 0 : errno;
}

bool IsConflict(int error) {
    return error == EAGAIN || error == EACCES;
}

// Shows the sharing mode of a newly opened file. The file may have been removed between being opened and being marked:
// then it is not the one that its name stands for, and NotFound makes the caller look again. A file system without
// locks has no sharing modes.
SystemError TakeSharing(int descriptor, Sharing sharing) {
    if (sharing == Sharing::None) {
        return SystemError::None;
    }
    const short type = sharing == Sharing::Exclusive ? F_WRLCK : F_RDLCK;
    if (IsConflict(SetLock(descriptor, type, kSharingOffset, 1))) {
        return SystemError::InUse;
    }
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        return SystemError::Other;
    }
    return status.st_nlink == 0 ? SystemError::NotFound : SystemError::None;
}

SystemError Finish(int descriptor, Sharing sharing, OsHandle* handle) {
    const SystemError shared = TakeSharing(descriptor, sharing);
    if (shared != SystemError::None) {
        CloseDescriptor(descriptor);
        return shared;
    }
    *handle = static_cast<OsHandle>(descriptor);
    return SystemError::None;
}

bool IsRegularFile(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

SystemError PosixFileService::Exists(const char* path) {
    struct stat status {};
    if (::stat(path, &status) != 0) {
        return FromErrno(errno);
    }
    return S_ISDIR(status.st_mode) ? SystemError::NotFound : SystemError::None;
}

SystemError PosixFileService::Create(const char* path, Sharing sharing, OsHandle* handle) {
    const int descriptor = OpenDescriptor(path, O_RDWR | O_CREAT | O_EXCL);
    if (descriptor < 0) {
        return FromErrno(errno);
    }
    return Finish(descriptor, sharing, handle);
}

SystemError PosixFileService::Open(const char* path, Access access, Sharing sharing, OsHandle* handle) {
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        const int descriptor = OpenDescriptor(path, (access == Access::ReadOnly ? O_RDONLY : O_RDWR) | O_NONBLOCK);
        if (descriptor < 0) {
            return FromErrno(errno);
        }
        if (!IsRegularFile(descriptor)) {
            CloseDescriptor(descriptor);
            return SystemError::Other;
        }
        const SystemError result = Finish(descriptor, sharing, handle);
        if (result != SystemError::NotFound) {
            return result;
        }
    }
    return SystemError::NotFound;
}

// Closing alone would leave the locks to whoever has a copy of the descriptor: a process that has just been forked off,
// until it runs its program.
void PosixFileService::Close(OsHandle handle) {
    SetLock(Descriptor(handle), F_UNLCK, 0, 0);
    CloseDescriptor(Descriptor(handle));
}

SystemError PosixFileService::ClaimForDelete(const char* path, OsHandle* claim) {
    return Open(path, Access::ReadWrite, Sharing::Exclusive, claim);
}

SystemError PosixFileService::DeleteClaimed(const char* path, OsHandle claim) {
    const int error = ::unlink(path) == 0 ? 0 : errno;
    Close(claim);
    return FromErrno(error);
}

SystemError PosixFileService::Read(OsHandle handle, uint64_t offset, void* buffer, size_t length) {
    char* to = static_cast<char*>(buffer);
    if (offset > kPositionMask) {
        return SystemError::EndOfFile;
    }
    while (length > 0) {
        const size_t piece = length < kLargestTransfer ? length : kLargestTransfer;
        const ssize_t count = ReadAt(Descriptor(handle), to, piece, offset);
        if (count > 0) {
            to += count;
            offset += static_cast<uint64_t>(count);
            length -= static_cast<size_t>(count);
        } else if (count == 0) {
            return SystemError::EndOfFile;
        } else if (errno != EINTR) {
            return FromErrno(errno);
        }
    }
    return SystemError::None;
}

SystemError PosixFileService::Write(OsHandle handle, uint64_t offset, const void* buffer, size_t length) {
    const char* from = static_cast<const char*>(buffer);
    if (offset > kPositionMask) {
        return SystemError::VolumeFull;
    }
    while (length > 0) {
        const size_t piece = length < kLargestTransfer ? length : kLargestTransfer;
        const ssize_t count = WriteAt(Descriptor(handle), from, piece, offset);
        if (count > 0) {
            from += count;
            offset += static_cast<uint64_t>(count);
            length -= static_cast<size_t>(count);
        } else if (count == 0) {
            return SystemError::VolumeFull;
        } else if (errno != EINTR) {
            return FromErrno(errno);
        }
    }
    return SystemError::None;
}

SystemError PosixFileService::GetSize(OsHandle handle, uint64_t* size) {
    struct stat status {};
    if (::fstat(Descriptor(handle), &status) != 0) {
        return FromErrno(errno);
    }
    *size = static_cast<uint64_t>(status.st_size);
    return SystemError::None;
}

SystemError PosixFileService::SetSize(OsHandle handle, uint64_t size) {
    if (size > kPositionMask) {
        return SystemError::VolumeFull;
    }
    int result;
    do {
        result = ::ftruncate(Descriptor(handle), static_cast<off_t>(size));
    } while (result != 0 && errno == EINTR);
    return result == 0 ? SystemError::None : FromErrno(errno);
}

SystemError PosixFileService::Flush(OsHandle handle) {
    int result;
    do {
        result = ::fsync(Descriptor(handle));
    } while (result != 0 && errno == EINTR);
    return result == 0 ? SystemError::None : FromErrno(errno);
}

SystemError PosixFileService::TryLock(OsHandle handle, uint64_t offset, uint32_t length, LockMode mode) {
    const int error = SetLock(Descriptor(handle), mode == LockMode::Exclusive ? F_WRLCK : F_RDLCK, offset, length);
    return IsConflict(error) ? SystemError::InUse : FromErrno(error);
}

SystemError PosixFileService::Unlock(OsHandle handle, uint64_t offset, uint32_t length) {
    return FromErrno(SetLock(Descriptor(handle), F_UNLCK, offset, length));
}

}  // namespace qx
