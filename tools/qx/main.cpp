// The command-line tool.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <exception>
#include <qx.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "arguments.h"
#include "command.h"
#include "messages.h"
#include "output.h"

namespace qx::tool {

namespace {

std::string VersionText() {
    const LibraryVersion version = Library().Version();
    return "qx " QX_TOOL_VERSION "\nlibqx " + std::to_string(version.Major) + '.' + std::to_string(version.Minor) +
           '.' + std::to_string(version.Revision);
}

std::string FailureMessage(const CLI::App* app, const CLI::Error& error) {
    const std::vector<CLI::App*> chosen = app->get_subcommands();
    const std::string command = chosen.empty() ? "qx" : "qx " + chosen.front()->get_name();
    return std::string("qx: ") + error.what() + "\nTry '" + command + " --help'.\n";
}

ExitStatus Run(int count, char** arguments) {
    CLI::App app("Works on hashed record files.", "qx");
    app.require_subcommand(1);
    app.set_version_flag("--version", VersionText);
    app.failure_message(FailureMessage);
    app.footer(
        "'qx COMMAND --help' tells more about a command.\n\n"
        "A hashed file CUST stands in the two files CUST.LK and CUST.OV; it is named without extension. An\n"
        "argument that begins with a dash is given after --, as in: qx get CUST -- -x\n\n"
        "Exit status: 0 done; 1 no such record (compare: something differs, check: damaged); 2 wrong use; 3 failure.");
    const std::vector<Command> commands = {
        AddCreateCommand(app), AddImportCommand(app), AddCompareCommand(app), AddGetCommand(app),
        AddPutCommand(app),    AddDeleteCommand(app), AddGroupCommand(app),   AddKeysCommand(app),
        AddExportCommand(app), AddDumpCommand(app),   AddLoadCommand(app),    AddCopyCommand(app),
        AddHeaderCommand(app), AddVolumeCommand(app), AddCheckCommand(app),   AddMapCommand(app),
        AddStatsCommand(app),  AddLockCommand(app),   AddLocksCommand(app),   AddClearCommand(app),
        AddDropCommand(app),
    };

    Output output;
    ExitStatus status = ExitStatus::Done;
    try {
        app.parse(GuardedArguments(count, arguments));
        const auto chosen = std::find_if(commands.begin(), commands.end(),
                                         [](const Command& command) { return command.App->parsed(); });
        status = chosen->Run(output);
    } catch (const CLI::ParseError& error) {
        std::ostringstream text;
        std::ostringstream complaint;
        status = app.exit(error, text, complaint) == 0 ? ExitStatus::Done : ExitStatus::WrongUse;
        output.Write(text.str());
        WriteError(complaint.str());
    }
    output.Finish();
    return status;
}

}  // namespace

}  // namespace qx::tool

int main(int argc, char** argv) {
    using namespace qx::tool;
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return static_cast<int>(Run(argc, argv));
    } catch (const WrongUse& error) {
        Complain(error.what());
        return static_cast<int>(ExitStatus::WrongUse);
    } catch (const qx::Error& error) {
        Complain(Describe(error));
    } catch (const std::exception& error) {
        Complain(error.what());
    }
    return static_cast<int>(ExitStatus::Failure);
}
