#include <memory>
#include <string>
#include <string_view>

#include "arguments.h"
#include "command.h"
#include "hashed_file.h"
#include "hex.h"

namespace qx::tool {

namespace {

struct Settings {
    explicit Settings(CLI::App& app)
        : File(AddFileArgument(app)),
          Reverse(AddFlag(app, "--reverse", "From the last group to the first")),
          Null(AddFlag(app, "-0,--null", "A zero byte behind each key instead of a line end")),
          Hex(AddFlag(app, "--hex", "Keys as hexadecimal digits, two a byte")) {}

    const CLI::Option* File;
    const CLI::Option* Reverse;
    const CLI::Option* Null;
    const CLI::Option* Hex;
};

ExitStatus Run(const Settings& settings, Output& output) {
    const std::string name = Text(*settings.File);
    const bool hex = settings.Hex->count() != 0;
    const std::string_view end = settings.Null->count() != 0 ? std::string_view("\0", 1) : "\n";
    return OnFile(name, [&] {
        HashedFile file(name, {.ReadOnly = true});
        for (const std::string_view key : settings.Reverse->count() != 0 ? file->ReverseKeys() : file->Keys()) {
            output.Write(hex ? ToHex(key) : std::string(key));
            output.Write(end);
        }
        return ExitStatus::Done;
    });
}

}  // namespace

Command AddKeysCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("keys", "Print every key.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "One key a line, as its bytes are, in the order of the groups. Where keys may hold line ends, take\n"
        "--null or --hex.\n\n"
        "Examples:\n"
        "  qx keys CUST\n"
        "  qx keys CUST | grep '^10' | xargs qx get CUST\n"
        "  qx keys CUST --null | xargs -0 -n 100 qx delete OLD --\n"
        "  qx keys CUST --hex --reverse");
    return {app, [settings](Output& output) { return Run(*settings, output); }};
}

}  // namespace qx::tool
