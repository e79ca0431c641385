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

ExitStatus Run(const Settings& settings) {
    const std::string name = Text(*settings.File);
    const std::vector<std::string> keys = settings.Keys.Keys();
    return OnFile(name, [&] {
        HashedFile file(name);
        const ExitStatus status = ForEachKey(name, keys, [&](const std::string& key) { return file->Delete(key); });
        file.Close();
        return status;
    });
}

}  // namespace

Command AddDeleteCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("delete", "Delete records.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "Exits with 1 when one of the keys is not found; the other records are deleted all the same.\n\n"
        "Examples:\n"
        "  qx delete CUST 1001\n"
        "  qx delete CUST 1001 1002 1003\n"
        "  qx delete CUST --hex 31FE00");
    return {app, [settings](Output&) { return Run(*settings); }};
}

}  // namespace qx::tool
