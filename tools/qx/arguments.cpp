#include "arguments.h"

#include "hex.h"

namespace qx::tool {

std::vector<std::string> GuardedArguments(int count, char** arguments) {
    std::vector<std::string> guarded;
    for (int i = count - 1; i > 0; --i) {
        std::string& argument = guarded.emplace_back(arguments[i]);
        if (argument.starts_with('[') || argument == "++") {
            argument += '\0';
        }
    }
    return guarded;
}

std::vector<std::string> Texts(const CLI::Option& option) {
    std::vector<std::string> texts = option.results();
    for (std::string& text : texts) {
        if (text.ends_with('\0')) {
            text.pop_back();
        }
    }
    return texts;
}

std::string Text(const CLI::Option& option) {
    const std::vector<std::string> texts = Texts(option);
    return texts.empty() ? std::string() : texts.back();
}

std::string DirectoryGiven(const CLI::Option& option) {
    return option.count() != 0 ? Text(option) : ".";
}

CLI::Option* AddText(CLI::App& app, const std::string& name, const std::string& description) {
    return app.add_option(name, description);
}

CLI::Option* AddTexts(CLI::App& app, const std::string& name, const std::string& description, int least) {
    return AddText(app, name, description)->expected(least, -1)->allow_extra_args()->type_name("");
}

CLI::Option* AddFlag(CLI::App& app, const std::string& name, const std::string& description) {
    return app.add_flag(name, description);
}

CLI::Option* AddFileArgument(CLI::App& app) {
    return AddText(app, "FILE", "The hashed file: a path without extension")->required()->type_name("");
}

KeyArguments::KeyArguments(CLI::App& app, Number number)
    : keys_((number == Number::One ? AddText(app, "KEY", "The key")->type_name("") : AddTexts(app, "KEY", "Keys", 1))
                ->required()),
      hex_(AddFlag(app, "--hex", "Keys are given as hexadecimal digits, two a byte")) {}

std::vector<std::string> KeyArguments::Keys() const {
    std::vector<std::string> keys = Texts(*keys_);
    if (hex_->count() != 0) {
        for (std::string& key : keys) {
            key = FromHex(key);
        }
    }
    return keys;
}

}  // namespace qx::tool
