#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "arguments.h"
#include "attribute_mark.h"
#include "command.h"
#include "each_key.h"
#include "hashed_file.h"

namespace qx::tool {

namespace {

struct Settings {
    explicit Settings(CLI::App& app)
        : File(AddFileArgument(app)),
          Keys(app, KeyArguments::Number::OneOrMore),
          Raw(AddFlag(app, "--raw", "Write the record's bytes as they are; for one key")) {}

    const CLI::Option* File;
    KeyArguments Keys;
    const CLI::Option* Raw;
};

ExitStatus Run(const Settings& settings, Output& output) {
    const std::string name = Text(*settings.File);
    const std::vector<std::string> keys = settings.Keys.Keys();
    const bool raw = settings.Raw->count() != 0;
    if (raw && keys.size() != 1) {
        throw WrongUse("--raw: give one key, as nothing would tell where one record ends and the next begins");
    }
    return OnFile(name, [&] {
        HashedFile file(name, {.ReadOnly = true});
        std::string record;
        bool first = true;
        return ForEachKey(name, keys, [&](const std::string& key) {
            if (!file->Read(key, record)) {
                return false;
            }
            if (raw) {
                output.Write(record);
                return true;
            }
            if (keys.size() > 1) {
                output.WriteLine((first ? "==> " : "\n==> ") + key + " <==");
            }
            first = false;
            std::replace(record.begin(), record.end(), kAttributeMark, '\n');
            output.WriteLine(record);
            return true;
        });
    });
}

}  // namespace

Command AddGetCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("get", "Print records.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "Prints the fields of a record one a line; with several keys each record follows a line with its key.\n"
        "Exits with 1 when one of the keys is not found; the other records are printed all the same.\n\n"
        "Examples:\n"
        "  qx get CUST 1001\n"
        "  qx get CUST 1001 1002 1003\n"
        "  qx get CUST --hex 31FE00\n"
        "  qx get PICTURES logo --raw > logo.png");
    return {app, [settings](Output& output) { return Run(*settings, output); }};
}

}  // namespace qx::tool
