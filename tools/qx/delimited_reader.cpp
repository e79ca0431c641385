#include "delimited_reader.h"

#include <stdexcept>

namespace qx::tool {

DelimitedReader::DelimitedReader(InputStream& input, DelimitedFormat format) : input_(input), format_(format) {
    input_.Skip("\xEF\xBB\xBF");
}

bool DelimitedReader::Next(DelimitedLine& line) {
    line.bytes_.clear();
    line.ends_.clear();
    line.fault_.clear();
    line.number_ = lineNumber_;
    if (input_.Peek() == InputStream::kEnd) {
        return false;
    }
    After after = After::Column;
    while (after == After::Column) {
        const bool quoted = format_.Quotes && input_.Peek() == '"';
        line.blank_ = line.ends_.empty() && !quoted;
        after = quoted ? ReadQuoted(line) : ReadPlain(line);
        line.ends_.push_back(line.bytes_.size());
    }
    line.blank_ = line.blank_ && line.bytes_.empty();
    return true;
}

// The rest of a column up to its delimiter or the end of the line.
DelimitedReader::After DelimitedReader::ReadPlain(DelimitedLine& line) {
    const std::size_t begin = line.bytes_.size();
    for (;;) {
        const int byte = input_.Get();
        if (byte == InputStream::kEnd) {
            return After::LastColumn;
        }
        const char c = static_cast<char>(byte);
        if (c == format_.Delimiter) {
            return After::Column;
        }
        if (c == '\n') {
            ++lineNumber_;
            if (line.bytes_.size() > begin && line.bytes_.back() == '\r') {
                line.bytes_.pop_back();
            }
            return After::LastColumn;
        }
        line.bytes_ += c;
    }
}

DelimitedReader::After DelimitedReader::ReadQuoted(DelimitedLine& line) {
    const std::uint64_t openedOn = lineNumber_;
    input_.Get();
    for (;;) {
        const int byte = input_.Get();
        if (byte == InputStream::kEnd) {
            // Where the quotes should have been closed nobody knows, so there is no going on behind them either.
            throw std::runtime_error(input_.Name() + ": line " + std::to_string(openedOn) +
                                     ": the quotes opened here are never closed");
        }
        const char c = static_cast<char>(byte);
        if (c == '"') {
            if (input_.Peek() != '"') {
                break;
            }
            input_.Get();
        }
        lineNumber_ += c == '\n' ? 1 : 0;
        line.bytes_ += c;
    }
    const std::size_t end = line.bytes_.size();
    const After after = ReadPlain(line);
    if (line.bytes_.size() != end && line.fault_.empty()) {
        line.fault_ = "there is text behind the closing quotes of column " + std::to_string(line.ends_.size() + 1);
    }
    return after;
}

}  // namespace qx::tool
