// The texts that verification hands over: fields separated by the byte FE.
#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>

#include "runtime/status.h"

namespace qx {

class VerificationReport {
  public:
    static constexpr uint32_t kLargest = 1024;
    static constexpr char kSeparator = '\xFE';

    VerificationReport& Number(uint64_t value) {
        char digits[20];
        const char* end = std::to_chars(digits, digits + sizeof digits, value).ptr;
        return Text({digits, static_cast<size_t>(end - digits)});
    }

    VerificationReport& File(WhichFile file) { return Text(file == WhichFile::Primary ? "PRIME" : "OV"); }

    VerificationReport& Text(std::string_view text) {
        if (length_ > 0) {
            bytes_[length_++] = kSeparator;
        }
        length_ += static_cast<uint32_t>(text.copy(bytes_ + length_, kLargest - 1 - length_));
        return *this;
    }

    // Ends the last field with a separator too.
    void Close() { bytes_[length_++] = kSeparator; }

    std::string_view Bytes() const { return {bytes_, length_}; }

  private:
    char bytes_[kLargest + 1];
    uint32_t length_ = 0;
};

// What is wrong, at most one thing a call, and what was measured if nothing is.
struct Verification {
    VerificationReport Statistics;
    VerificationReport Problem;
    bool Held = false;  // a check of the file has left it under a select hold
};

// The problems that can be told, with the fields that follow the number.
enum class Problem : uint32_t {
    Unreadable = 1,       // the primary file's name
    PrimaryHeader = 3,    // the frame's first byte; 0 for the file header
    PrimaryLength = 4,    // length in bytes, Modulo, FrameSize
    OverflowHeader = 5,   // the frame's first byte; the frame for a list frame
    ForeignKey = 7,       // none
    Terminator = 8,       // group, file, frame, position
    ForeignFrame = 9,     // frame, its owner
    LinkBeyondFile = 10,  // HighWater, frame
    ListUnreadable = 11,  // list frame
    ListOrder = 12,       // list frame
    NotFilled = 13,       // file, frame, position
    LastFrameLinks = 14,  // file, frame
};

}  // namespace qx
