#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qx::tool {

/// A file or standard input, byte by byte. What a slow writer has written so far can be read at once.
class InputStream {
  public:
    static constexpr int kEnd = EOF;

    /// `name`: a path, or "-" for standard input. Throws std::runtime_error when it cannot be opened.
    explicit InputStream(const std::string& name);

    /// A stream of these bytes; `name` is what messages call it.
    static InputStream OfText(const std::string& name, std::string_view text);

    /// The next byte, 0 to 255, or kEnd. Throws std::runtime_error when reading fails, and Interrupted.
    int Get() {
        const int byte = ahead_.empty() ? getc_unlocked(file_.get()) : TakeAhead();
        if (byte == EOF) {
            CheckEnd();
            return kEnd;
        }
        ++bytesRead_;
        return byte;
    }

    /// The byte that the next Get returns.
    int Peek() {
        const int byte = Get();
        if (byte != kEnd) {
            PutBack(byte);
        }
        return byte;
    }

    /// Whether it can be read a second time, as a file can and a pipe cannot.
    bool CanRewind() const noexcept { return size_.has_value(); }

    /// Goes back to where reading began. Throws std::runtime_error.
    void Rewind();

    /// Passes over `bytes` if the input goes on with them.
    void Skip(std::string_view bytes);

    /// As to be shown to the user.
    const std::string& Name() const noexcept { return name_; }

    std::uint64_t BytesRead() const noexcept { return bytesRead_; }

    /// How many bytes there are altogether, where that is known.
    std::optional<std::uint64_t> Size() const noexcept { return size_; }

  private:
    struct Closer {
        void operator()(std::FILE* file) const noexcept {
            if (file != stdin) {
                std::fclose(file);
            }
        }
    };

    int TakeAhead() {
        const int byte = static_cast<unsigned char>(ahead_.back());
        ahead_.pop_back();
        return byte;
    }

    void PutBack(int byte) {
        ahead_ += static_cast<char>(byte);
        --bytesRead_;
    }

    void CheckEnd() const;

    std::string name_;
    std::unique_ptr<std::FILE, Closer> file_;
    std::optional<std::uint64_t> size_;
    long start_ = 0;     // where reading began
    std::string ahead_;  // read and put back; the next byte is the last
    std::uint64_t bytesRead_ = 0;
};

}  // namespace qx::tool
