#include "input_stream.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "interrupt.h"

namespace qx::tool {

InputStream::InputStream(const std::string& name) : name_(name == "-" ? "standard input" : name) {
    file_.reset(name == "-" ? stdin : std::fopen(name.c_str(), "rb"));
    if (file_ == nullptr) {
        throw std::runtime_error(name_ + ": " + std::strerror(errno));
    }
    constexpr std::size_t kBufferSize = 65536;
    std::setvbuf(file_.get(), nullptr, _IOFBF, kBufferSize);
    const std::filesystem::path path = name == "-" ? "/proc/self/fd/0" : name;
    std::error_code error;
    if (std::filesystem::is_regular_file(path, error)) {
        const std::uintmax_t size = std::filesystem::file_size(path, error);
        if (!error) {
            size_ = size;
            start_ = std::ftell(file_.get());
        }
    }
}

InputStream InputStream::OfText(const std::string& name, std::string_view text) {
    InputStream stream("/dev/null");
    stream.name_ = name;
    stream.ahead_.assign(text.rbegin(), text.rend());
    return stream;
}

void InputStream::Rewind() {
    if (std::fseek(file_.get(), start_, SEEK_SET) != 0) {
        throw std::runtime_error(name_ + ": " + std::strerror(errno));
    }
    ahead_.clear();
    bytesRead_ = 0;
}

void InputStream::Skip(std::string_view bytes) {
    std::size_t same = 0;
    while (same < bytes.size() && Peek() == static_cast<unsigned char>(bytes[same])) {
        Get();
        ++same;
    }
    while (same < bytes.size() && same > 0) {
        PutBack(static_cast<unsigned char>(bytes[--same]));
    }
}

// The end of the input, or the reason why there is no more. When the writer is interrupted along with this process, its
// last line may be half a line, so that end is none.
void InputStream::CheckEnd() const {
    if (InterruptRequested()) {
        throw Interrupted();
    }
    if (std::ferror(file_.get()) != 0) {
        throw std::runtime_error(name_ + ": " + std::strerror(errno));
    }
}

}  // namespace qx::tool
