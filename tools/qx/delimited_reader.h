#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "input_stream.h"

namespace qx::tool {

struct DelimitedFormat {
    char Delimiter = ',';
    bool Quotes = true;  // a column may stand in double quotes, within which they are doubled
};

/// One line of delimited text, taken apart. With quotes it may span several lines of the input.
class DelimitedLine {
  public:
    std::size_t Count() const noexcept { return ends_.size(); }
    std::string_view Column(std::size_t number) const noexcept {
        const std::size_t begin = number == 0 ? 0 : ends_[number - 1];
        return std::string_view(bytes_).substr(begin, ends_[number] - begin);
    }

    /// The number of the input line that it begins on, from 1.
    std::uint64_t Number() const noexcept { return number_; }

    /// Nothing but the end of the line.
    bool Blank() const noexcept { return blank_; }

    /// What is wrong with it; empty for a good line.
    const std::string& Fault() const noexcept { return fault_; }

  private:
    friend class DelimitedReader;

    std::string bytes_;  // the columns, one behind the other
    std::vector<std::size_t> ends_;
    std::uint64_t number_ = 0;
    bool blank_ = false;
    std::string fault_;
};

/// Reads delimited text line by line. A line ends with a line feed, with or without a carriage return before it, or
/// with the input; a byte order mark at the very beginning is passed over.
class DelimitedReader {
  public:
    DelimitedReader(InputStream& input, DelimitedFormat format);

    /// False at the end. Throws std::runtime_error when reading fails and when the input ends within quotes.
    bool Next(DelimitedLine& line);

  private:
    enum class After { Column, LastColumn };

    After ReadPlain(DelimitedLine& line);
    After ReadQuoted(DelimitedLine& line);

    InputStream& input_;
    DelimitedFormat format_;
    std::uint64_t lineNumber_ = 1;
};

}  // namespace qx::tool
