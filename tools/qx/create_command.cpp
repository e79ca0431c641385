#include <memory>
#include <qx.hpp>

#include "arguments.h"
#include "command.h"
#include "creation_options.h"

namespace qx::tool {

namespace {

struct Settings {
    explicit Settings(CLI::App& app) : File(AddFileArgument(app)), Options(app, CreationOptions::Otherwise::Defaults) {}

    const CLI::Option* File;
    CreationOptions Options;
};

ExitStatus Create(const Settings& settings, Output& output) {
    const Creation creation = settings.Options.ForNew();
    const std::string name = Text(*settings.File);
    return OnFile(name, [&] {
        Library library;
        Session session(library);
        session.CreateFile(name, creation.Settings);
        session.Close();
        library.Close();
        if (!creation.Choice.empty()) {
            output.WriteLine(name + ": " + creation.Choice);
        }
        return ExitStatus::Done;
    });
}

}  // namespace

Command AddCreateCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("create", "Make an empty hashed file.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "A file adds and takes away groups by itself, but its frame size is for good; with --for it is chosen\n"
        "so that reading stays at about one frame. Only a file that is locked in size needs to be given its\n"
        "groups.\n\n"
        "Examples:\n"
        "  qx create CUST\n"
        "  qx create CUST --for 1000000 --record-bytes 120\n"
        "  qx create CUST --modulo 2003 --frame-size 4096\n"
        "  qx create CUST --modulo 101 --size-lock 2");
    return {app, [settings](Output& output) { return Create(*settings, output); }};
}

}  // namespace qx::tool
