#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace qx::tool {

// CLI11 takes an argument in square brackets for a list of several and ++ for the end of a subcommand, and there is no
// turning that off. Keys and fields may look like anything, so such arguments go through the parser with a guard behind
// them, which no real argument can hold: a zero byte. All text is therefore read from an option with the functions
// here.

/// The arguments of main in the order in which CLI::App::parse wants them, guarded.
std::vector<std::string> GuardedArguments(int count, char** arguments);

/// An option or positional argument that takes text.
CLI::Option* AddText(CLI::App& app, const std::string& name, const std::string& description);

/// A positional argument that takes all the text there is, at least `least` pieces.
CLI::Option* AddTexts(CLI::App& app, const std::string& name, const std::string& description, int least);

/// An option without a value.
CLI::Option* AddFlag(CLI::App& app, const std::string& name, const std::string& description);

/// The one value of an option, or nothing if it was not given.
std::string Text(const CLI::Option& option);

/// The directory that an option names; if it was not given, the current one.
std::string DirectoryGiven(const CLI::Option& option);

/// All values of an option.
std::vector<std::string> Texts(const CLI::Option& option);

/// The positional argument FILE.
CLI::Option* AddFileArgument(CLI::App& app);

/// Keys on the command line, which may be given as hexadecimal digits so that any byte can be named.
class KeyArguments {
  public:
    enum class Number { One, OneOrMore };

    /// Adds the positional argument KEY and the option --hex.
    KeyArguments(CLI::App& app, Number number);

    /// The keys' bytes. Throws WrongUse.
    std::vector<std::string> Keys() const;

  private:
    const CLI::Option* keys_;
    const CLI::Option* hex_;
};

}  // namespace qx::tool
