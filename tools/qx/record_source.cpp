#include "record_source.h"

#include <stdexcept>
#include <string_view>

#include "arguments.h"
#include "attribute_mark.h"
#include "messages.h"

namespace qx::tool {

namespace {

constexpr std::uint64_t kBadLinesTold = 20;

std::string Columns(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " column" : " columns");
}

}  // namespace

RecordSourceOptions::RecordSourceOptions(CLI::App& app)
    : input_(AddText(app, "INPUT", "Delimited text; standard input if absent or -")->type_name("")),
      delimited_(app),
      header_(AddFlag(app, "--header", "The first line names the columns; every line has as many")),
      skipBad_(AddFlag(app, "--skip-bad", "Pass over lines that make no record, and count them")) {}

std::string RecordSourceOptions::InputName() const {
    return input_->count() == 0 ? "-" : Text(*input_);
}

RecordSource::RecordSource(const RecordSourceOptions& options)
    : input_(options.InputName()), reader_(input_, options.Delimited().Format()), skipsBad_(options.SkipsBad()) {
    if (options.HasHeader()) {
        ReadHeader(options.Delimited());
    } else {
        keyColumn_ = options.Delimited().KeyColumn();
    }
}

void RecordSource::ReadHeader(const DelimitedOptions& options) {
    if (!reader_.Next(line_)) {
        throw std::runtime_error(input_.Name() + ": there is no header line, nor any other");
    }
    if (!line_.Fault().empty()) {
        throw std::runtime_error(Where() + ": " + line_.Fault());
    }
    columns_ = line_.Count();
    try {
        keyColumn_ = options.KeyColumn(line_);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(Where() + ": " + error.what());
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
