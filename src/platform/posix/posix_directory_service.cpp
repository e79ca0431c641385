#include "platform/posix/posix_directory_service.h"

#include <cerrno>
#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ascii_case.h"

namespace qx {

namespace {

bool RealPath(const char* path, std::string* resolved) {
    const std::unique_ptr<char, void (*)(void*)> real(::realpath(path, nullptr), ::free);
    if (real == nullptr) {
        return false;
    }
    *resolved = real.get();
    return true;
}

struct CloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

}  // namespace

bool PosixDirectoryService::CurrentDirectory(std::string* path) {
    return RealPath(".", path);
}

SystemError PosixDirectoryService::FindEntry(const std::string& directory, std::string_view stem,
                                             std::string_view extension, std::string* storedStem) {
    std::string path = directory;
    path += '/';
    path += stem;
    path += extension;
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0) {
        *storedStem = stem;
        return SystemError::None;
    }
    const std::unique_ptr<DIR, CloseDirectory> listing(::opendir(directory.c_str()));
    if (listing == nullptr) {
        return errno == EMFILE || errno == ENFILE ? SystemError::NoHandles : SystemError::NotFound;
    }
    std::string match;
    int matches = 0;
    while (const dirent* entry = ::readdir(listing.get())) {
        const std::string_view name = entry->d_name;
        if (!name.ends_with(extension)) {
            continue;
        }
        const std::string_view entryStem = name.substr(0, name.size() - extension.size());
        if (EqualWithoutCase(entryStem, stem)) {
            match = entryStem;
            ++matches;
        }
    }
    if (matches != 1) {
        return SystemError::NotFound;
    }
    *storedStem = match;
    return SystemError::None;
}

bool PosixDirectoryService::ResolveDirectoryLink(const std::string& path, std::string* target) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode) || ::stat(path.c_str(), &status) != 0 ||
        !S_ISDIR(status.st_mode)) {
        return false;
    }
    return RealPath(path.c_str(), target);
}

SystemError PosixDirectoryService::MountTable(std::string* table) {
    const int descriptor = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        table->clear();
        return errno == EMFILE || errno == ENFILE ? SystemError::NoHandles
               : errno == ENOENT                  ? SystemError::None
                                                  : SystemError::Other;
    }
    constexpr size_t kPiece = 4096;
    size_t size = 0;
    ssize_t count = 0;
    do {
        table->resize(size + kPiece);
        count = ::read(descriptor, table->data() + size, kPiece);
        size += count > 0 ? static_cast<size_t>(count) : 0;
    } while (count > 0 || (count < 0 && errno == EINTR));
    table->resize(size);
    ::close(descriptor);
    return count == 0 ? SystemError::None : SystemError::Other;
}

}  // namespace qx
