#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "arguments.h"
#include "command.h"
#include "messages.h"
#include "number_text.h"
#include "volume/parameter_text.h"
#include "volume_place.h"

namespace qx::tool {

namespace {

struct Arguments {
    explicit Arguments(CLI::App& app)
        : Directory(AddText(app, "DIR", "The directory; the current one if there is none")->type_name("")) {}

    const CLI::Option* Directory;
};

std::string YesNo(bool value) {
    return value ? "YES" : "NO";
}

std::string NameOr(const std::string& name, const char* without) {
    return name.empty() ? without : name;
}

std::string ValueOf(Keyword keyword, const Parameters& parameters) {
    const VolumeSettings& settings = parameters.Settings;
    const ServerEntries& server = parameters.Server;
    switch (keyword) {
        case Keyword::ServerOnly:
            return YesNo(settings.ServerOnly);
        case Keyword::ReadOnly:
            return YesNo(settings.ReadOnly);
        case Keyword::FlushFileSizeUpdates:
            return YesNo(settings.FlushFileSizeUpdates);
        case Keyword::FlushAllUpdates:
            return YesNo(settings.FlushAllUpdates);
        case Keyword::FillCharacter:
            return std::to_string(settings.FillCharacter);
        case Keyword::Locks:
            return settings.Locks ? YesNo(*settings.Locks) : "where they work";
        case Keyword::CacheFlushLocks:
            return YesNo(settings.CacheFlushLocks);
        case Keyword::GroupLockTimeout:
            return Counted(settings.GroupLockTimeout, "second");
        case Keyword::MaximumUsers:
            return Grouped(settings.MaximumUsers);
        case Keyword::MaximumRecordSize:
            return settings.MaximumRecordSize == 0 ? "no limit" : Counted(settings.MaximumRecordSize, "byte");
        case Keyword::NamedPipeName:
            return NameOr(server.NamedPipeName, "NONE");
        case Keyword::TcpIpPort:
            return server.TcpIpPort == kNoPort ? "NONE" : std::to_string(server.TcpIpPort);
        case Keyword::ServerName:
            return NameOr(server.ServerName, "as in the path");
        case Keyword::ShareName:
            return NameOr(server.ShareName, "as in the path");
    }
    return {};
}

std::string Padded(std::string text, std::size_t width) {
    text.resize(std::max(text.size() + 1, width), ' ');
    return text;
}

std::string Row(const std::string& label, const std::string& value) {
    constexpr std::size_t kLabelWidth = 16;
    return Padded(label, kLabelWidth) + value + '\n';
}

std::string LineOf(const std::string& text, std::size_t offset) {
    return "line " + Grouped(1 + static_cast<std::uint64_t>(std::count(
                                     text.begin(), text.begin() + static_cast<std::ptrdiff_t>(offset), '\n')));
}

std::string Table(const Parameters& parameters, const ParameterReading& reading, const std::string& text) {
    constexpr std::size_t kKeywordWidth = 22;
    constexpr std::size_t kValueWidth = 18;
    std::string table;
    for (std::size_t i = 0; i < kKeywordCount; ++i) {
        const auto keyword = static_cast<Keyword>(i);
        table += Padded(std::string(WordOf(keyword)), kKeywordWidth) +
                 Padded(ValueOf(keyword, parameters), kValueWidth) +
                 (reading.SetAt[i] ? LineOf(text, *reading.SetAt[i]) : "default") + '\n';
    }
    return table;
}

const char* Explain(UnusedWord::Reason reason) {
    switch (reason) {
        case UnusedWord::Reason::NoKeyword:
            return "no keyword";
        case UnusedWord::Reason::NoAssignment:
            return "an equals sign is missing";
        case UnusedWord::Reason::BadValue:
            return "not a value of this keyword";
        case UnusedWord::Reason::AfterDot:
            return "passed over after a dot";
        case UnusedWord::Reason::SetBefore:
            return "set before, and the first one counts";
    }
    return "";
}

// One line for several words of one line that are there in vain for the same reason.
std::string UnusedWords(const std::vector<UnusedWord>& words, const std::string& text) {
    constexpr std::size_t kLineWidth = 10;
    std::string list;
    for (std::size_t i = 0; i < words.size();) {
        const std::string line = LineOf(text, words[i].Offset);
        std::size_t last = i;
        while (words[i].Why == UnusedWord::Reason::NoKeyword && last + 1 < words.size() &&
               words[last + 1].Why == words[i].Why && LineOf(text, words[last + 1].Offset) == line) {
            ++last;
        }
        const std::size_t start = words[i].Offset;
        list += "  " + Padded(line, kLineWidth) + Explain(words[i].Why) + ": " +
                Quoted(std::string_view(text).substr(start, words[last].Offset + words[last].Length - start)) + '\n';
        i = last + 1;
    }
    return list;
}

std::string Describe(const Place& place, const ParameterFile& file) {
    Parameters parameters;
    const ParameterReading reading = ApplyParameterText(file.Text, parameters);
    std::string text = Row("Directory", place.Directory) + Row("Name", place.Name);
    const std::string onServer = NameOnServer(place.Name, parameters.Server);
    if (onServer != place.Name) {
        text += Row("On its server", onServer);
    }
    text += Row("Parameter file", file.Path.empty() ? "none" : file.Path);
    for (const std::string& path : file.PassedOver) {
        text += Row("Passed over", path + " (cannot be read)");
    }
    text += '\n' + Table(parameters, reading, file.Text);
    if (!reading.Unused.empty()) {
        text += "\nWithout effect:\n" + UnusedWords(reading.Unused, file.Text);
    }
    if (file.Text.size() > kParameterTextLimit) {
        text += "\nOf the file's " + Counted(file.Text.size(), "byte") + ", the first " + Grouped(kParameterTextLimit) +
                " count.\n";
    }
    return text;
}

ExitStatus Run(const Arguments& arguments, Output& output) {
    const std::string directory = DirectoryGiven(*arguments.Directory);
    return OnFile(directory, [&] {
        const Place place = PlaceOf(directory);
        output.Write(Describe(place, FindParameterFile(place)));
        return ExitStatus::Done;
    });
}

}  // namespace

Command AddVolumeCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("volume", "Show the settings of a volume and where they come from.");
    auto arguments = std::make_shared<Arguments>(*app);
    app->footer(
        "A volume is a directory with hashed files. Its settings stand in the file MOXPARAM in the directory\n"
        "itself, or else in the nearest directory above it that has one. Words in that file that set nothing\n"
        "are listed.\n\n"
        "Examples:\n"
        "  qx volume\n"
        "  qx volume /srv/data");
    return {app, [arguments](Output& output) { return Run(*arguments, output); }};
}

}  // namespace qx::tool
