#include "frame_file.h"

#include <filesystem>
#include <system_error>

namespace qx_check {

FrameFile::FrameFile(const std::string& path, bool mayBeMissing) : path_(path) {
    std::error_code error;
    length_ = std::filesystem::file_size(path, error);
    if (error) {
        if (!mayBeMissing || error != std::errc::no_such_file_or_directory) {
            throw UnreadableFile(path + ": " + error.message());
        }
        exists_ = false;
        length_ = 0;
        return;
    }
    file_.pubsetbuf(nullptr, 0);  // whole frames are read; a buffer in between would only copy them once more
    if (file_.open(path, std::ios::in | std::ios::binary) == nullptr) {
        throw UnreadableFile(path + ": cannot be opened");
    }
}

void FrameFile::Read(uint64_t offset, uint64_t count, uint8_t* destination) {
    const auto wanted = static_cast<std::streamsize>(count);
    try {
        if (offset != filePosition_) {
            file_.pubseekpos(static_cast<std::streamoff>(offset), std::ios::in);
        }
        if (file_.sgetn(reinterpret_cast<char*>(destination), wanted) == wanted) {
            filePosition_ = offset + count;
            return;
        }
    } catch (const std::ios_base::failure&) {
        // The one report below serves for both ways in which the stream shows a failure.
    }
    throw UnreadableFile(path_ + ": cannot be read at offset " + std::to_string(offset));
}

}  // namespace qx_check
