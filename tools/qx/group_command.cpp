#include <memory>
#include <string>

#include "arguments.h"
#include "command.h"
#include "each_key.h"
#include "hashed_file.h"

namespace qx::tool {

namespace {

struct Settings {
    explicit Settings(CLI::App& app) : File(AddFileArgument(app)), Keys(app, KeyArguments::Number::OneOrMore) {}

    const CLI::Option* File;
    KeyArguments Keys;
};

ExitStatus Run(const Settings& settings, Output& output) {
    const std::string name = Text(*settings.File);
    const std::vector<std::string> keys = settings.Keys.Keys();
    return OnFile(name, [&] {
        HashedFile file(name, {.ReadOnly = true});
        return ForEachKey(name, keys, [&](const std::string& key) {
            output.WriteLine(std::to_string(file->GroupNumber(key)));
            return true;
        });
    });
}

}  // namespace

Command AddGroupCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("group", "Print the numbers of the groups that keys belong to.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "Prints one number a line, in the order of the keys. A key has a group whether there is such a record\n"
        "or not, and may get another when the file grows or shrinks.\n\n"
        "Examples:\n"
        "  qx group CUST 1001 1002\n"
        "  qx group CUST --hex 31FE00");
    return {app, [settings](Output& output) { return Run(*settings, output); }};
}

}  // namespace qx::tool
