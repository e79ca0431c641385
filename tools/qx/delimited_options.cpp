#include "delimited_options.h"

#include <charconv>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "arguments.h"
#include "command.h"
#include "messages.h"

namespace qx::tool {

namespace {

/// A whole number from 1, or nothing if the text is something else.
std::optional<std::size_t> ColumnNumber(std::string_view text) {
    std::size_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number == 0) {
        return std::nullopt;
    }
    return number;
}

}  // namespace

DelimitedOptions::DelimitedOptions(CLI::App& app)
    : delimiter_(AddText(app, "--delimiter", "Character between columns, a comma by default; \\t is a tab, \\xNN any")
                     ->type_name("CHAR")),
      key_(AddText(app, "--key", "Column that holds the key: its number, from 1, or with --header its name; default 1")
               ->type_name("COLUMN")),
      noQuotes_(AddFlag(app, "--no-quotes", "Double quotes are characters like any other")) {}

DelimitedFormat DelimitedOptions::Format() const {
    DelimitedFormat format;
    format.Quotes = noQuotes_->count() == 0;
    if (delimiter_->count() != 0) {
        const std::string text = Text(*delimiter_);
        const char* end = text.data() + text.size();
        unsigned char byte = 0;
        if (text.size() == 1) {
            format.Delimiter = text[0];
        } else if (text == "\\t") {
            format.Delimiter = '\t';
        } else if (text.size() == 4 && text.starts_with("\\x") &&
                   std::from_chars(text.data() + 2, end, byte, 16).ptr == end) {
            format.Delimiter = static_cast<char>(byte);
        } else {
            throw WrongUse("--delimiter: " + Quoted(text) + " is not one character, \\t or \\xNN");
        }
    }
    if (format.Delimiter == '\n' || format.Delimiter == '\r' || (format.Quotes && format.Delimiter == '"')) {
        throw WrongUse("--delimiter: lines and quotes need this character themselves");
    }
    return format;
}

std::string DelimitedOptions::KeyText() const {
    return key_->count() == 0 ? "1" : Text(*key_);
}

std::size_t DelimitedOptions::KeyColumn() const {
    const std::optional<std::size_t> number = ColumnNumber(KeyText());
    if (!number) {
        throw WrongUse("--key: " + Quoted(KeyText()) +
                       " is no column number, and there is no --header to name columns");
    }
    return *number - 1;
}

std::size_t DelimitedOptions::KeyColumn(const DelimitedLine& header) const {
    const std::string wanted = KeyText();
    const std::size_t columns = header.Count();
    if (const std::optional<std::size_t> number = ColumnNumber(wanted)) {
        if (*number > columns) {
            throw std::runtime_error("the key is column " + wanted + ", but the header has " + std::to_string(columns));
        }
        return *number - 1;
    }
    std::optional<std::size_t> found;
    for (std::size_t i = 0; i < columns; ++i) {
        if (header.Column(i) == wanted) {
            if (found) {
                throw std::runtime_error("several columns are named " + Quoted(wanted));
            }
            found = i;
        }
    }
    if (!found) {
        throw std::runtime_error("no column is named " + Quoted(wanted));
    }
    return *found;
}

}  // namespace qx::tool
