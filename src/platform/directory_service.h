// Directory look-ups for names that are spelled in any case and reached through links.
#pragma once

#include <string>
#include <string_view>

#include "platform/system_error.h"

namespace qx {

class DirectoryService {
  public:
    virtual ~DirectoryService() = default;

    // The process's current directory as an absolute path without links; false when it cannot be had.
    virtual bool CurrentDirectory(std::string* path) = 0;

    // Looks `stem` + `extension` up in a directory: first as it is spelled, then without regard to the case of ASCII
    // letters in the stem. None with the stored stem when there is exactly one answer, NotFound or NoHandles.
    virtual SystemError FindEntry(const std::string& directory, std::string_view stem, std::string_view extension,
                                  std::string* storedStem) = 0;

    // Where a symbolic link to a directory leads, as an absolute path without links; false when `path` is no such link.
    virtual bool ResolveDirectoryLink(const std::string& path, std::string* target) = 0;

    // The system's table of mounted file systems, one a line: numbers, numbers, numbers, the part of the file system
    // that is mounted, the directory where, options, a dash, the kind of file system, and what is mounted. Empty where
    // the system has no such table; NoHandles or Other.
    virtual SystemError MountTable(std::string* table) = 0;
};

}  // namespace qx
