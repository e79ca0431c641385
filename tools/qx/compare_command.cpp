#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "arguments.h"
#include "attribute_mark.h"
#include "command.h"
#include "hashed_file.h"
#include "messages.h"
#include "number_text.h"
#include "progress_line.h"
#include "record_source.h"

namespace qx::tool {

namespace {

struct Settings {
    explicit Settings(CLI::App& app)
        : File(AddFileArgument(app)),
          Source(app),
          Partial(AddFlag(app, "--partial", "The file may hold records that the input does not")) {}

    const CLI::Option* File;
    RecordSourceOptions Source;
    const CLI::Option* Partial;
};

// The first field of `rest`, which loses it; nothing when there is none left.
std::optional<std::string_view> TakeField(std::optional<std::string_view>& rest) {
    if (!rest) {
        return std::nullopt;
    }
    const std::size_t end = rest->find(kAttributeMark);
    const std::string_view field = rest->substr(0, end);
    rest = end == std::string_view::npos ? std::nullopt : std::optional(rest->substr(end + 1));
    return field;
}

// Where two different records part.
std::string FirstDifference(std::string_view stored, std::string_view wanted) {
    std::optional<std::string_view> storedRest = stored;
    std::optional<std::string_view> wantedRest = wanted;
    for (int number = 1;; ++number) {
        const auto storedField = TakeField(storedRest);
        const auto wantedField = TakeField(wantedRest);
        if (storedField != wantedField) {
            return "field " + std::to_string(number) + " is " + (storedField ? Quoted(*storedField) : "missing") +
                   ", the input has " + (wantedField ? Quoted(*wantedField) : "none");
        }
    }
}

class Comparison {
  public:
    Comparison(std::string name, HashedFile& file, RecordSource& source, Output& output)
        : name_(std::move(name)), file_(file), source_(source), output_(output) {}

    void Run() {
        ProgressLine progress;
        std::string stored;
        while (source_.Next()) {
            ++compared_;
            progress.Show(compared_, source_.Input().BytesRead(), source_.Input().Size());
            if (!file_->Read(source_.Key(), stored)) {
                ++missing_;
                Tell("not in the file");
            } else if (stored != source_.Record()) {
                ++different_;
                Tell(FirstDifference(stored, source_.Record()));
            }
        }
    }

    /// What the file's own count says to it. Not kept in files of version 100.
    void CheckCount(const HeaderValues& header) {
        const std::uint64_t found = compared_ - missing_;
        if (header.Version != 100 && header.RecordCount != found) {
            countDiffers_ = true;
            output_.WriteLine(name_ + ": the file counts " + Counted(header.RecordCount, "record") + ", " +
                              Grouped(found) + " of the input are in it");
        }
    }

    bool Same() const noexcept { return missing_ == 0 && different_ == 0 && !countDiffers_; }

    void Summarise() {
        const std::string compared = name_ + ": " + Counted(compared_, "record") + " compared: ";
        std::string outcome = "all the same";
        if (missing_ + different_ != 0) {
            outcome = Grouped(different_) + " different, " + Grouped(missing_) + " not in the file";
        }
        if (source_.BadLines() != 0) {
            outcome += "; " + Counted(source_.BadLines(), "bad line") + " passed over";
        }
        output_.WriteLine(compared + outcome);
    }

  private:
    void Tell(const std::string& difference) {
        constexpr std::uint64_t kDifferencesTold = 20;
        const std::uint64_t number = missing_ + different_;
        if (number <= kDifferencesTold) {
            output_.WriteLine(source_.Where() + ": key " + Quoted(source_.Key()) + ": " + difference +
                              (number < kDifferencesTold ? "" : " (further differences are only counted)"));
        }
    }

    std::string name_;
    HashedFile& file_;
    RecordSource& source_;
    Output& output_;
    std::uint64_t compared_ = 0;
    std::uint64_t missing_ = 0;
    std::uint64_t different_ = 0;
    bool countDiffers_ = false;
};

ExitStatus Run(const Settings& settings, Output& output) {
    const std::string name = Text(*settings.File);
    return OnFile(name, [&] {
        HashedFile file(name, {.ReadOnly = true});
        RecordSource source(settings.Source);
        Comparison comparison(name, file, source, output);
        comparison.Run();
        if (settings.Partial->count() == 0) {
            comparison.CheckCount(file->Header());
        }
        comparison.Summarise();
        return comparison.Same() ? ExitStatus::Done : ExitStatus::NotFound;
    });
}

}  // namespace

Command AddCompareCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("compare", "Compare a file with a delimited text, record by record.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "Takes the input and the options of 'qx import', reads the record of every line back and compares it\n"
        "byte for byte; then looks whether the file counts as many records. Exits with 0 when all is the same\n"
        "and with 1 when something differs. Where a key stands on several lines, the earlier ones differ.\n\n"
        "Examples:\n"
        "  qx compare CUST customers.csv --header --key number\n"
        "  qx compare CHARS UnicodeData.txt --delimiter ';' --no-quotes");
    return {app, [settings](Output& output) { return Run(*settings, output); }};
}

}  // namespace qx::tool
