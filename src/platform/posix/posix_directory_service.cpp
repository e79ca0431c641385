#include "platform/posix/posix_directory_service.h"

#include <cerrno>
#include <climits>
#include <dirent.h>
#include <memory>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qx {

namespace {

char FoldCase(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool EqualWithoutCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        if (FoldCase(a[i]) != FoldCase(b[i])) {
            return false;
        }
    }
    return true;
}

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

}  // namespace qx
