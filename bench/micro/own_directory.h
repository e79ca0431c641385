// A directory that goes with the object, and what is in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace qx {

class OwnDirectory {
  public:
    OwnDirectory() {
        if (::mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no directory for the files can be made");
        }
    }
    ~OwnDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    OwnDirectory(const OwnDirectory&) = delete;
    OwnDirectory& operator=(const OwnDirectory&) = delete;

    std::string File(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_ = std::filesystem::temp_directory_path() / "corvane.XXXXXX";
};

}  // namespace qx
