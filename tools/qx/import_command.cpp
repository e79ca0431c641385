#include <cstdint>
#include <memory>
#include <string>

#include "arguments.h"
#include "command.h"
#include "filling.h"
#include "hashed_file.h"
#include "interrupt.h"
#include "long_job.h"
#include "messages.h"
#include "number_text.h"
#include "progress_line.h"
#include "record_source.h"
#include "statistics_text.h"

namespace qx::tool {

namespace {

struct Settings {
    explicit Settings(CLI::App& app)
        : File(AddFileArgument(app)), Stats(AddFlag(app, "--stats", "Print what was counted meanwhile")), Source(app) {}

    const CLI::Option* File;
    const CLI::Option* Stats;
    RecordSourceOptions Source;
};

ExitStatus Run(const Settings& settings, Output& output) {
    const std::string name = Text(*settings.File);
    return OnFile(name, [&] {
        HashedFile file(name);
        const std::uint64_t before = file->Header().RecordCount;
        WatchForInterrupt();
        RecordSource source(settings.Source);
        ProgressLine progress;
        std::uint64_t imported = 0;
        const auto where = [&] { return source.Where() + ": key " + Quoted(source.Key()) + ": " + name; };
        const ExitStatus status = RunJob(progress, where, [&] {
            Filling filling(*file);
            while (source.Next()) {
                if (InterruptRequested()) {
                    throw Interrupted();
                }
                filling.Write(source.Key(), source.Record());
                ++imported;
                progress.Show(imported, source.Input().BytesRead(), source.Input().Size());
            }
        });
        const std::string pace = progress.Pace(imported);
        const std::uint64_t after = file->Header().RecordCount;
        file.Close();
        output.WriteLine(
            name + ": " + Counted(imported, "record") + (status == ExitStatus::Done ? "" : ", not all,") +
            " imported " + pace +
            (source.BadLines() == 0 ? "" : "; " + Counted(source.BadLines(), "bad line") + " passed over") +
            "; the file holds " + Counted(after, "record") + ", before " + Grouped(before));
        if (settings.Stats->count() != 0) {
            output.Write(StatisticsTable(ProcessStatistics()));
        }
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
