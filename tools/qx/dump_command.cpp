#include <memory>
#include <string>
#include <string_view>

#include "arguments.h"
#include "command.h"
#include "creation_options.h"
#include "dump_writer.h"
#include "hashed_file.h"
#include "record_walk.h"
#include "terminal.h"

namespace qx::tool {

namespace {

ExitStatus Run(const std::string& name, Output& output) {
    return OnFile(name, [&] {
        HashedFile file(name, {.ReadOnly = true});
        ProgressLine progress(!IsTerminal(Stream::Output));
        DumpWriter dump(output, SettingsOf(file->Header()));
        ForEachRecord(file, progress,
                      [&](std::string_view key, const std::string& record) { dump.Write(key, record); });
        dump.Finish();
        return ExitStatus::Done;
    });
}

}  // namespace

Command AddDumpCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("dump", "Write a file as text that loses nothing.");
    const CLI::Option* file = AddFileArgument(*app);
    app->footer(
        "Writes every record, whatever bytes it holds, and the settings of the file as lines of ASCII to\n"
        "standard output; at the end a count and a checksum. 'qx load' makes a file of it.\n\n"
        "Examples:\n"
        "  qx dump CUST > cust.dump\n"
        "  qx dump CUST | gzip > cust.dump.gz\n"
        "  qx dump CUST | ssh there qx load CUST");
    return {app, [file](Output& output) { return Run(Text(*file), output); }};
}

}  // namespace qx::tool
