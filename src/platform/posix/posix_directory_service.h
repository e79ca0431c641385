#pragma once

#include "platform/directory_service.h"

namespace qx {

class PosixDirectoryService final : public DirectoryService {
  public:
    bool CurrentDirectory(std::string* path) override;
    SystemError FindEntry(const std::string& directory, std::string_view stem, std::string_view extension,
                          std::string* storedStem) override;
    bool ResolveDirectoryLink(const std::string& path, std::string* target) override;
    SystemError MountTable(std::string* table) override;
};

}  // namespace qx
