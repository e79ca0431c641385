#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <stdexcept>
#include <string>

#include "output.h"

namespace qx::tool {

/// What the process exits with. Where a command works on several keys, the highest one wins.
enum class ExitStatus {
    Done = 0,
    NotFound = 1,  // or, when comparing, different; when checking, damaged
    WrongUse = 2,
    Failure = 3,
};

/// Thrown for options and arguments that make no sense although they parse.
class WrongUse : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// A subcommand: its options, which stand in `App`, and what it does once they are parsed.
struct Command {
    CLI::App* App;
    std::function<ExitStatus(Output& output)> Run;
};

/// Runs `body`, telling the user of a failed call as one on the hashed file or directory `name`.
ExitStatus OnFile(const std::string& name, const std::function<ExitStatus()>& body);

Command AddCreateCommand(CLI::App& root);
Command AddImportCommand(CLI::App& root);
Command AddCompareCommand(CLI::App& root);
Command AddGetCommand(CLI::App& root);
Command AddPutCommand(CLI::App& root);
Command AddDeleteCommand(CLI::App& root);
Command AddGroupCommand(CLI::App& root);
Command AddKeysCommand(CLI::App& root);
Command AddExportCommand(CLI::App& root);
Command AddDumpCommand(CLI::App& root);
Command AddLoadCommand(CLI::App& root);
Command AddCopyCommand(CLI::App& root);
Command AddHeaderCommand(CLI::App& root);
Command AddCheckCommand(CLI::App& root);
Command AddMapCommand(CLI::App& root);
Command AddVolumeCommand(CLI::App& root);
Command AddStatsCommand(CLI::App& root);
Command AddLockCommand(CLI::App& root);
Command AddLocksCommand(CLI::App& root);
Command AddClearCommand(CLI::App& root);
Command AddDropCommand(CLI::App& root);

}  // namespace qx::tool
