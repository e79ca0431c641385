#include "delimited_writer.h"

#include <algorithm>

namespace qx::tool {

namespace {

void AppendQuoted(std::string& line, std::string_view column) {
    line += '"';
    for (const char c : column) {
        line.append(c == '"' ? 2 : 1, c);
    }
    line += '"';
}

}  // namespace

std::string DelimitedWriter::Write(const std::vector<std::string_view>& columns, std::string& line) const {
    line.clear();
    for (std::size_t i = 0; i < columns.size(); ++i) {
        line.append(i == 0 ? 0 : 1, format_.Delimiter);
        if (!NeedsQuotes(columns[i])) {
            line += columns[i];
        } else if (format_.Quotes) {
            AppendQuoted(line, columns[i]);
        } else {
            return "column " + std::to_string(i + 1) +
                   " holds the delimiter, a line end or a byte order mark, which takes quotes";
        }
    }
    line += '\n';
    return {};
}

// Not only where it must: a carriage return matters at the end of a line alone, and a byte order mark at the beginning
// of the text.
bool DelimitedWriter::NeedsQuotes(std::string_view column) const {
    return column.starts_with("\xEF\xBB\xBF") || std::any_of(column.begin(), column.end(), [&](char c) {
               return c == format_.Delimiter || c == '\n' || c == '\r' || (format_.Quotes && c == '"');
           });
}

}  // namespace qx::tool
