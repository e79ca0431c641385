// One of the two operating-system files of a hashed file, read at any offset.
#pragma once

#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>

namespace qx_check {

// The file cannot be opened or read: nothing is known about its bytes.
struct UnreadableFile : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class FrameFile {
  public:
    // A missing file throws unless mayBeMissing; it then has no bytes.
    FrameFile(const std::string& path, bool mayBeMissing);

    bool Exists() const { return exists_; }
    uint64_t Length() const { return length_; }

    // All `count` bytes must lie within the file.
    void Read(uint64_t offset, uint64_t count, uint8_t* destination);

  private:
    std::string path_;
    std::filebuf file_;
    bool exists_ = true;
    uint64_t length_ = 0;
    uint64_t filePosition_ = 0;
};

}  // namespace qx_check
