#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "arguments.h"
#include "attribute_mark.h"
#include "command.h"
#include "delimited_options.h"
#include "delimited_writer.h"
#include "hashed_file.h"
#include "messages.h"
#include "number_text.h"
#include "record_walk.h"
#include "terminal.h"

namespace qx::tool {

namespace {

constexpr std::uint64_t kBadRecordsTold = 20;

struct Settings {
    explicit Settings(CLI::App& app)
        : File(AddFileArgument(app)),
          Delimited(app),
          Header(AddText(app, "--header", "A line that names the columns, to stand first; every record has as many")
                     ->type_name("LINE")),
          SkipBad(AddFlag(app, "--skip-bad", "Pass over records that make no line, and count them")) {}

    const CLI::Option* File;
    DelimitedOptions Delimited;
    const CLI::Option* Header;
    const CLI::Option* SkipBad;
};

/// Turns records into the lines that 'qx import' makes them of.
class LineMaker {
  public:
    /// Throws WrongUse.
    explicit LineMaker(const Settings& settings) : writer_(settings.Delimited.Format()) {
        if (settings.Header->count() == 0) {
            keyColumn_ = settings.Delimited.KeyColumn();
            return;
        }
        try {
            ReadHeader(Text(*settings.Header), settings.Delimited);
        } catch (const std::runtime_error& error) {
            throw WrongUse(std::string("--header: ") + error.what());
        }
    }

    bool HasHeader() const noexcept { return header_.Count() != 0; }

    /// Makes the header line; returns why it cannot be, or nothing.
    std::string TakeHeader() {
        columns_.clear();
        for (std::size_t i = 0; i < header_.Count(); ++i) {
            columns_.push_back(header_.Column(i));
        }
        return writer_.Write(columns_, line_);
    }

    /// Makes the line of a record; returns why it cannot be, or nothing.
    std::string Take(std::string_view key, std::string_view record) {
        if (key.empty()) {
            return "the key is empty";
        }
        SplitIntoColumns(record);
        const std::string fields = Counted(columns_.size(), "field");
        if (columns_.size() < keyColumn_) {
            return "the record has " + fields + ", the key is column " + std::to_string(keyColumn_ + 1);
        }
        if (HasHeader() && columns_.size() + 1 != header_.Count()) {
            return "the record has " + fields + ", the header has " + std::to_string(header_.Count() - 1) +
                   " besides the key";
        }
        columns_.insert(columns_.begin() + static_cast<std::ptrdiff_t>(keyColumn_), key);
        return writer_.Write(columns_, line_);
    }

    /// The line made last, its end included.
    const std::string& Line() const noexcept { return line_; }

  private:
    void ReadHeader(const std::string& text, const DelimitedOptions& options) {
        InputStream input = InputStream::OfText("the text", text);
        DelimitedReader reader(input, options.Format());
        DelimitedLine more;
        if (!reader.Next(header_) || !header_.Fault().empty() || reader.Next(more)) {
            throw std::runtime_error("this is not one line of columns");
        }
        keyColumn_ = options.KeyColumn(header_);
    }

    // An empty record has one empty field, unless the header leaves no room for it: the line says the same either way.
    void SplitIntoColumns(std::string_view record) {
        columns_.clear();
        if (record.empty() && header_.Count() == 1) {
            return;
        }
        for (std::size_t begin = 0, end = 0; end != std::string_view::npos; begin = end + 1) {
            end = record.find(kAttributeMark, begin);
            columns_.push_back(record.substr(begin, end - begin));
        }
    }

    DelimitedWriter writer_;
    DelimitedLine header_;  // of no columns when there is none
    std::size_t keyColumn_ = 0;
    std::vector<std::string_view> columns_;
    std::string line_;
};

ExitStatus Run(const Settings& settings, Output& output) {
    const std::string name = Text(*settings.File);
    const bool skipsBad = settings.SkipBad->count() != 0;
    LineMaker maker(settings);
    return OnFile(name, [&] {
        HashedFile file(name, {.ReadOnly = true});
        ProgressLine progress(!IsTerminal(Stream::Output));
        std::uint64_t bad = 0;
        if (maker.HasHeader()) {
            const std::string fault = maker.TakeHeader();
            if (!fault.empty()) {
                throw WrongUse("--header: " + fault);
            }
            output.Write(maker.Line());
        }
        ForEachRecord(file, progress, [&](std::string_view key, const std::string& record) {
            const std::string fault = maker.Take(key, record);
            if (fault.empty()) {
                output.Write(maker.Line());
                return;
            }
            const std::string told = name + ": key " + Quoted(key) + ": " + fault;
            if (!skipsBad) {
                throw std::runtime_error(told);
            }
            if (++bad <= kBadRecordsTold) {
                progress.Clear();
                Complain(told + (bad < kBadRecordsTold ? "" : " (further such records are only counted)"));
            }
        });
        progress.Clear();
        if (bad != 0) {
            Complain(name + ": " + Counted(bad, "record") + " passed over");
        }
        return ExitStatus::Done;
    });
}

}  // namespace

Command AddExportCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("export", "Write the records as delimited text.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "Writes to standard output what 'qx import' with the same options makes the same records of: a line\n"
        "for each, with the key in its column and the fields in the others. Columns stand in quotes where they\n"
        "must. A record that makes no such line stops the export, unless --skip-bad is given; 'qx dump' can\n"
        "write any.\n\n"
        "Examples:\n"
        "  qx export CUST > customers.csv\n"
        "  qx export CUST --header number,name,city --key number\n"
        "  qx export CHARS --delimiter ';' --no-quotes | sort");
    return {app, [settings](Output& output) { return Run(*settings, output); }};
}

}  // namespace qx::tool
