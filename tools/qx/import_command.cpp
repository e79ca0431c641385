#include <cstdint>
#include <memory>
#include <stdexcept>

#include "arguments.h"
#include "command.h"
#include "hashed_file.h"
#include "interrupt.h"
#include "messages.h"
#include "number_text.h"
#include "progress_line.h"
#include "record_source.h"

namespace qx::tool {

namespace {

struct Settings {
    explicit Settings(CLI::App& app) : File(AddFileArgument(app)), Source(app) {}

    const CLI::Option* File;
    RecordSourceOptions Source;
};

/// One import: what it has done so far is true whatever ends it.
class Import {
  public:
    Import(const std::string& name, HashedFile& file, RecordSource& source)
        : name_(name), file_(file), source_(source) {}

    /// Reads and writes until the input ends, an interrupt comes or something fails.
    ExitStatus Run() {
        try {
            while (!InterruptRequested() && source_.Next()) {
                file_->Write(source_.Key(), source_.Record());
                ++imported_;
                progress_.Show(imported_, source_.Input().BytesRead(), source_.Input().Size());
            }
            progress_.Clear();
            if (InterruptRequested()) {
                throw Interrupted();
            }
            return ExitStatus::Done;
        } catch (const Interrupted&) {
            Tell("interrupted");
        } catch (const Error& error) {
            Tell(source_.Where() + ": key " + Quoted(source_.Key()) + ": " + name_ + ": " + Describe(error));
        } catch (const std::runtime_error& error) {
            Tell(error.what());
        }
        return ExitStatus::Failure;
    }

    std::uint64_t Imported() const noexcept { return imported_; }
    double Seconds() const { return progress_.Seconds(); }

  private:
    void Tell(const std::string& reason) {
        progress_.Clear();
        Complain(reason);
    }

    const std::string& name_;
    HashedFile& file_;
    RecordSource& source_;
    ProgressLine progress_;
    std::uint64_t imported_ = 0;
};

std::string Summary(const std::string& name, const Import& import, const RecordSource& source, bool complete,
                    std::uint64_t before, std::uint64_t after) {
    const double seconds = import.Seconds();
    const double rate = seconds > 0 ? static_cast<double>(import.Imported()) / seconds : 0;
    std::string text = name + ": " + Counted(import.Imported(), "record") + (complete ? "" : ", not all,") +
                       " imported in " + OneDecimal(seconds) + " s (" + Grouped(static_cast<std::uint64_t>(rate)) +
                       " a second)";
    if (source.BadLines() != 0) {
        text += "; " + Counted(source.BadLines(), "bad line") + " passed over";
    }
    return text + "; the file holds " + Counted(after, "record") + ", before " + Grouped(before);
}

ExitStatus Run(const Settings& settings, Output& output) {
    const std::string name = Text(*settings.File);
    return OnFile(name, [&] {
        HashedFile file(name);
        const std::uint64_t before = file->Header().RecordCount;
        WatchForInterrupt();
        RecordSource source(settings.Source);
        Import import(name, file, source);
        const ExitStatus status = import.Run();
        const std::uint64_t after = file->Header().RecordCount;
        file.Close();
        output.WriteLine(Summary(name, import, source, status == ExitStatus::Done, before, after));
        return status;
    });
}

}  // namespace

Command AddImportCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("import", "Store the lines of a delimited text as records.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "One column of a line is the key. The others, in their order, become the fields of the record, joined\n"
        "by the attribute mark (the byte FE). A record with the same key is replaced. Blank lines are passed\n"
        "over. A column may stand in double quotes and may then hold the delimiter, line ends and, doubled,\n"
        "quotes. A line that makes no record stops the import, unless --skip-bad is given. What was imported\n"
        "before a failure or an interrupt stays.\n\n"
        "Examples:\n"
        "  qx import CUST customers.csv --header --key number\n"
        "  qx import CHARS UnicodeData.txt --delimiter ';' --no-quotes\n"
        "  mysql -B -e 'select * from t' | qx import T --delimiter '\\t' --no-quotes");
    return {app, [settings](Output& output) { return Run(*settings, output); }};
}

}  // namespace qx::tool
