#pragma once

#include <cstdint>
#include <optional>
#include <qx.hpp>
#include <string>

namespace qx::tool {

/// A hashed file that a command makes and fills. Unless it is kept, it goes with this object: nobody is to find half a
/// file.
class NewFile {
  public:
    NewFile(const std::string& name, const CreateSettings& settings);
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile();

    File& operator*() noexcept { return *file_; }

    /// To be called when it is filled. Throws what closing can fail with, and then it is not kept.
    void Keep();

  private:
    void Remove();

    std::string name_;
    Library library_;
    Session session_{library_};
    std::optional<File> file_;
    bool kept_ = false;
};

}  // namespace qx::tool
