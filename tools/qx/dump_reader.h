#pragma once

#include <cstdint>
#include <qx.hpp>
#include <string>
#include <string_view>

#include "crc64.h"
#include "input_stream.h"

namespace qx::tool {

/// Reads a dump record by record and finds out whether it is whole, which is certain only at its end. Everything here
/// throws std::runtime_error with the line where the dump goes wrong, and what InputStream throws.
class DumpReader {
  public:
    /// Reads what comes before the records.
    explicit DumpReader(InputStream& input);

    /// How the file that was dumped was made.
    const CreateSettings& Settings() const noexcept { return settings_; }

    /// False at the end of a dump that is as it was written.
    bool Next();

    /// The record read last.
    const std::string& Key() const noexcept { return key_; }
    const std::string& Record() const noexcept { return record_; }

    /// How many were read.
    std::uint64_t Records() const noexcept { return records_; }

    /// "cust.dump: line 12".
    std::string Where() const;

  private:
    [[noreturn]] void Refuse(const std::string& reason) const;
    char Take();
    std::string TakeShortLine();
    void TakeEscaped(char last, std::string& bytes);
    void TakeEnd();

    InputStream& input_;
    Crc64 checksum_;
    std::uint64_t line_ = 1;
    bool lineEnded_ = false;  // by the last byte taken
    CreateSettings settings_;
    std::string key_;
    std::string record_;
    std::uint64_t records_ = 0;
};

}  // namespace qx::tool
