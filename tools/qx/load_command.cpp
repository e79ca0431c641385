#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "arguments.h"
#include "command.h"
#include "creation_options.h"
#include "dump_reader.h"
#include "filling.h"
#include "hashed_file.h"
#include "interrupt.h"
#include "long_job.h"
#include "messages.h"
#include "new_file.h"
#include "number_text.h"

namespace qx::tool {

namespace {

struct Settings {
    explicit Settings(CLI::App& app)
        : File(AddFileArgument(app)),
          Input(AddText(app, "INPUT", "The dump; standard input if absent or -")->type_name("")),
          Into(AddFlag(app, "--into", "Store into a file that is there; records with the same key are replaced")),
          Options(app, CreationOptions::Otherwise::AsSource) {}

    const CLI::Option* File;
    const CLI::Option* Input;
    const CLI::Option* Into;
    CreationOptions Options;
};

// Reads the dump to its end and hands every record to `take`.
void ReadAll(DumpReader& dump, const InputStream& input, ProgressLine& progress, const std::function<void()>& take) {
    while (dump.Next()) {
        if (InterruptRequested()) {
            throw Interrupted();
        }
        take();
        progress.Show(dump.Records(), input.BytesRead(), input.Size());
    }
}

// Whether a dump that can be read once more is whole: then nothing is stored before that is known.
bool IsWhole(InputStream& input, const std::string& name) {
    ProgressLine progress;
    const ExitStatus status = RunJob(
        progress, [&] { return name; },
        [&] {
            DumpReader dump(input);
            ReadAll(dump, input, progress, [] {});
            input.Rewind();
        });
    if (status != ExitStatus::Done) {
        Complain(name + ": nothing stored");
    }
    return status == ExitStatus::Done;
}

ExitStatus Load(const Settings& settings, const std::string& name, InputStream& input, Output& output) {
    ProgressLine progress;
    std::optional<DumpReader> dump;
    std::optional<NewFile> made;
    std::optional<HashedFile> present;
    std::uint64_t stored = 0;
    std::string choice;
    const auto where = [&] {
        const bool isRecord = dump && dump->Records() > stored;
        return (isRecord ? dump->Where() + ": key " + Quoted(dump->Key()) + ": " : "") + name;
    };
    const ExitStatus status = RunJob(progress, where, [&] {
        dump.emplace(input);
        if (settings.Into->count() != 0) {
            present.emplace(name);
        } else {
            const Creation creation = settings.Options.ForCopyOf(dump->Settings());
            choice = creation.Choice;
            made.emplace(name, creation.Settings);
        }
        {
            Filling filling(made ? **made : **present);
            ReadAll(*dump, input, progress, [&] {
                filling.Write(dump->Key(), dump->Record());
                ++stored;
            });
        }
        if (made) {
            made->Keep();
        } else {
            present->Close();
        }
    });
    if (status == ExitStatus::Done) {
        if (!choice.empty()) {
            output.WriteLine(name + ": " + choice);
        }
        output.WriteLine(name + ": " + Counted(stored, "record") + " loaded " + progress.Pace(stored));
    } else if (present && stored != 0) {
        Complain(name + ": " + Counted(stored, "record") + " loaded before stay there");
    }
    return status;
}

ExitStatus Run(const Settings& settings, Output& output) {
    if (settings.Into->count() != 0 && settings.Options.Given()) {
        throw WrongUse("--into: how the file is made is settled, as it is there");
    }
    const std::string name = Text(*settings.File);
    WatchForInterrupt();
    InputStream input(settings.Input->count() == 0 ? "-" : Text(*settings.Input));
    if (input.CanRewind() && !IsWhole(input, name)) {
        return ExitStatus::Failure;
    }
    return Load(settings, name, input, output);
}

}  // namespace

Command AddLoadCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("load", "Make a file of a dump.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "The file is made like the one that 'qx dump' read, as far as no option says otherwise; there must be\n"
        "none of the name, unless --into is given. A dump that is damaged or cut short is refused, with the\n"
        "line: if it comes from a file, before anything is stored; if from a pipe, a file that was made is\n"
        "removed again, but what was stored --into another stays.\n\n"
        "Examples:\n"
        "  qx load CUST cust.dump\n"
        "  qx load CUST cust.dump --frame-size 4096\n"
        "  qx load CUST more.dump --into\n"
        "  gunzip < cust.dump.gz | qx load CUST");
    return {app, [settings](Output& output) { return Run(*settings, output); }};
}

}  // namespace qx::tool
