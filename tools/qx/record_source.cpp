#include "record_source.h"

#include <charconv>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "arguments.h"
#include "attribute_mark.h"
#include "command.h"
#include "messages.h"

namespace qx::tool {

namespace {

constexpr std::uint64_t kBadLinesTold = 20;

/// A whole number from 1, or nothing if the text is something else.
std::optional<std::size_t> ColumnNumber(std::string_view text) {
    std::size_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number == 0) {
        return std::nullopt;
    }
    return number;
}

std::string Columns(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " column" : " columns");
}

}  // namespace

RecordSourceOptions::RecordSourceOptions(CLI::App& app)
    : input_(AddText(app, "INPUT", "Delimited text; standard input if absent or -")->type_name("")),
      delimiter_(AddText(app, "--delimiter", "Character between columns, a comma by default; \\t is a tab, \\xNN any")
                     ->type_name("CHAR")),
      key_(AddText(app, "--key", "Column that holds the key: its number, from 1, or with --header its name; default 1")
               ->type_name("COLUMN")),
      header_(AddFlag(app, "--header", "The first line names the columns; every line has as many")),
      noQuotes_(AddFlag(app, "--no-quotes", "Double quotes are characters like any other")),
      skipBad_(AddFlag(app, "--skip-bad", "Pass over lines that make no record, and count them")) {}

std::string RecordSourceOptions::KeyColumn() const {
    return key_->count() == 0 ? "1" : Text(*key_);
}

std::string RecordSourceOptions::InputName() const {
    return input_->count() == 0 ? "-" : Text(*input_);
}

DelimitedFormat RecordSourceOptions::Format() const {
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

RecordSource::RecordSource(const RecordSourceOptions& options)
    : input_(options.InputName()), reader_(input_, options.Format()), skipsBad_(options.SkipsBad()) {
    const std::string keyColumn = options.KeyColumn();
    const std::optional<std::size_t> number = ColumnNumber(keyColumn);
    if (!number && !options.HasHeader()) {
        throw WrongUse("--key: " + Quoted(keyColumn) +
                       " is no column number, and there is no --header to name columns");
    }
    keyColumn_ = number.value_or(1) - 1;
    if (options.HasHeader()) {
        ReadHeader(number ? std::string() : keyColumn);
    }
}

// `keyColumn`: the name to look for; empty when the key's column is known by number.
void RecordSource::ReadHeader(const std::string& keyColumn) {
    if (!reader_.Next(line_)) {
        throw std::runtime_error(input_.Name() + ": there is no header line, nor any other");
    }
    if (!line_.Fault().empty()) {
        throw std::runtime_error(Where() + ": " + line_.Fault());
    }
    columns_ = line_.Count();
    std::size_t found = 0;
    for (std::size_t i = 0; i < columns_ && !keyColumn.empty(); ++i) {
        if (line_.Column(i) == keyColumn) {
            keyColumn_ = i;
            ++found;
        }
    }
    if (!keyColumn.empty() && found != 1) {
        throw std::runtime_error(Where() + ": " + (found == 0 ? "no column is" : "several columns are") + " named " +
                                 Quoted(keyColumn));
    }
    if (keyColumn_ >= columns_) {
        throw std::runtime_error(Where() + ": the key is column " + std::to_string(keyColumn_ + 1) +
                                 ", but the header has " + std::to_string(columns_));
    }
}

std::string RecordSource::Where() const {
    return input_.Name() + ": line " + std::to_string(line_.Number());
}

bool RecordSource::Next() {
    while (reader_.Next(line_)) {
        if (line_.Blank()) {
            continue;
        }
        const std::string fault = Fault();
        if (fault.empty()) {
            TakeLine();
            return true;
        }
        if (!skipsBad_) {
            throw std::runtime_error(Where() + ": " + fault);
        }
        if (++badLines_ <= kBadLinesTold) {
            Complain(Where() + ": " + fault +
                     (badLines_ < kBadLinesTold ? "" : " (further bad lines are only counted)"));
        }
    }
    return false;
}

// Why the line makes no record; empty if it does.
std::string RecordSource::Fault() const {
    if (!line_.Fault().empty()) {
        return line_.Fault();
    }
    if (columns_ != 0 && line_.Count() != columns_) {
        return "it has " + Columns(line_.Count()) + ", the header has " + std::to_string(columns_);
    }
    if (keyColumn_ >= line_.Count()) {
        return "it has " + Columns(line_.Count()) + ", the key is column " + std::to_string(keyColumn_ + 1);
    }
    if (line_.Column(keyColumn_).empty()) {
        return "the key is empty";
    }
    for (std::size_t i = 0; i < line_.Count(); ++i) {
        if (i != keyColumn_ && line_.Column(i).find(kAttributeMark) != std::string_view::npos) {
            return "column " + std::to_string(i + 1) + " holds the byte FE, which would cut it into several fields";
        }
    }
    return {};
}

void RecordSource::TakeLine() {
    key_ = line_.Column(keyColumn_);
    record_.clear();
    bool first = true;
    for (std::size_t i = 0; i < line_.Count(); ++i) {
        if (i != keyColumn_) {
            record_.append(first ? 0 : 1, kAttributeMark);
            record_ += line_.Column(i);
            first = false;
        }
    }
}

}  // namespace qx::tool
