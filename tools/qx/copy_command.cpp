#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "arguments.h"
#include "command.h"
#include "creation_options.h"
#include "filling.h"
#include "hashed_file.h"
#include "interrupt.h"
#include "long_job.h"
#include "messages.h"
#include "new_file.h"
#include "number_text.h"
#include "record_walk.h"

namespace qx::tool {

namespace {

struct Settings {
    explicit Settings(CLI::App& app)
        : From(AddText(app, "FROM", "The hashed file to copy: a path without extension")->required()->type_name("")),
          To(AddText(app, "TO", "The file to make")->required()->type_name("")),
          Overwrite(AddFlag(app, "--overwrite", "Delete TO first if it is there")),
          Fit(AddFlag(app, "--fit", "Choose groups and frame size for the records that FROM holds")),
          Options(app, CreationOptions::Otherwise::AsSource) {
        Options.ExcludeSizing(*Fit);
    }

    const CLI::Option* From;
    const CLI::Option* To;
    const CLI::Option* Overwrite;
    CLI::Option* Fit;
    CreationOptions Options;
};

struct Amount {
    std::uint64_t Records = 0;
    std::uint64_t Bytes = 0;  // of keys and data

    void Add(std::string_view key, std::string_view record) {
        ++Records;
        Bytes += key.size() + record.size();
    }
};

void DeleteIfThere(const std::string& name) {
    Library library;
    Session session(library);
    try {
        session.DeleteFile(name);
    } catch (const Error& error) {
        if (error.Code() != kNoSuchFile) {
            throw;
        }
    }
}

class Copy {
  public:
    explicit Copy(const Settings& settings)
        : settings_(settings), from_(Text(*settings.From)), to_(Text(*settings.To)) {}

    ExitStatus Run(Output& output) {
        ProgressLine progress;
        std::optional<NewFile> made;
        Creation creation;
        const ExitStatus status = RunJob(
            progress, [&] { return concerned_; },
            [&] {
                HashedFile source(from_, {.ReadOnly = true});
                creation = HowToMake(source, progress);
                concerned_ = to_;
                if (settings_.Overwrite->count() != 0) {
                    DeleteIfThere(to_);
                }
                made.emplace(to_, creation.Settings);
                FillFrom(source, **made, progress);
                made->Keep();
            });
        if (status == ExitStatus::Done) {
            if (!creation.Choice.empty()) {
                output.WriteLine(to_ + ": " + creation.Choice);
            }
            output.WriteLine(from_ + ": " + Counted(copied_.Records, "record") + ", " + Counted(copied_.Bytes, "byte") +
                             ", copied to " + to_ + " " + progress.Pace(copied_.Records));
        }
        return status;
    }

  private:
    Creation HowToMake(HashedFile& source, ProgressLine& progress) const {
        const CreateSettings asSource = SettingsOf(source->Header());
        const Creation creation = settings_.Options.ForCopyOf(asSource);
        if (settings_.Fit->count() == 0) {
            return creation;
        }
        Amount amount;
        ForEachRecord(source, progress,
                      [&](std::string_view key, const std::string& record) { amount.Add(key, record); });
        return amount.Records == 0 ? creation
                                   : SizedFor(creation.Settings, amount.Records, amount.Bytes / amount.Records);
    }

    void FillFrom(HashedFile& source, File& file, ProgressLine& progress) {
        Filling filling(file);
        concerned_ = from_;
        ForEachRecord(source, progress,
                      [&](std::string_view key, const std::string& record) { Store(filling, key, record); });
        concerned_ = to_;
    }

    void Store(Filling& filling, std::string_view key, const std::string& record) {
        try {
            filling.Write(key, record);
        } catch (const Error&) {
            concerned_ = "key " + Quoted(key) + ": " + to_;
            throw;
        }
        copied_.Add(key, record);
    }

    const Settings& settings_;
    const std::string from_;
    const std::string to_;
    std::string concerned_ = from_;  // what a call that fails now is about
    Amount copied_;
};

ExitStatus Run(const Settings& settings, Output& output) {
    WatchForInterrupt();
    return Copy(settings).Run(output);
}

}  // namespace

Command AddCopyCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("copy", "Copy a file, record by record, into a new one.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "What no option says is as in FROM; when the bytes change that a group may hold, so does the number of\n"
        "groups. A copy that cannot be completed is removed again. With --overwrite, TO is deleted as soon as\n"
        "FROM is open.\n\n"
        "Examples:\n"
        "  qx copy CUST CUST2\n"
        "  qx copy CUST CUST2 --fit\n"
        "  qx copy CUST CUST2 --frame-size 4096 --overwrite\n"
        "  qx copy CUST CUST2 --for 1000000 --record-bytes 120");
    return {app, [settings](Output& output) { return Run(*settings, output); }};
}

}  // namespace qx::tool
