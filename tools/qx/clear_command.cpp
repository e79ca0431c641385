#include <memory>
#include <string>

#include "arguments.h"
#include "command.h"
#include "hashed_file.h"
#include "messages.h"
#include "terminal.h"

namespace qx::tool {

namespace {

struct Settings {
    explicit Settings(CLI::App& app)
        : File(AddFileArgument(app)), Yes(AddFlag(app, "--yes", "Do not ask; needed where there is no terminal")) {}

    const CLI::Option* File;
    const CLI::Option* Yes;
};

bool MayGoOn(const Settings& settings, const std::string& question) {
    if (settings.Yes->count() != 0) {
        return true;
    }
    if (!IsTerminal(Stream::Input)) {
        throw WrongUse("records would be lost: --yes is needed, as there is no terminal to ask on");
    }
    if (!Confirm(question)) {
        Complain("nothing done");
        return false;
    }
    return true;
}

ExitStatus Clear(const Settings& settings) {
    const std::string name = Text(*settings.File);
    if (!MayGoOn(settings, "Remove all records of " + name + "?")) {
        return ExitStatus::Failure;
    }
    return OnFile(name, [&] {
        HashedFile file(name);
        file->Clear();
        file.Close();
        return ExitStatus::Done;
    });
}

ExitStatus Drop(const Settings& settings) {
    const std::string name = Text(*settings.File);
    if (!MayGoOn(settings, "Delete " + name + " and all its records?")) {
        return ExitStatus::Failure;
    }
    return OnFile(name, [&] {
        Library library;
        Session session(library);
        session.DeleteFile(name);
        session.Close();
        library.Close();
        return ExitStatus::Done;
    });
}

}  // namespace

Command AddClearCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("clear", "Remove every record of a file.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "The file stays, with the settings that it was made with; unless it is locked in size or somebody\n"
        "walks it, it shrinks to one group.\n\n"
        "Examples:\n"
        "  qx clear CUST\n"
        "  qx clear CUST --yes");
    return {app, [settings](Output&) { return Clear(*settings); }};
}

Command AddDropCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("drop", "Delete a file with all its records.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "A file that a process has open is not deleted.\n\n"
        "Examples:\n"
        "  qx drop CUST\n"
        "  qx drop CUST --yes");
    return {app, [settings](Output&) { return Drop(*settings); }};
}

}  // namespace qx::tool
