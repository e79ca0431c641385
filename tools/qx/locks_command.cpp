#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "arguments.h"
#include "command.h"
#include "hex.h"
#include "lock_places.h"
#include "platform/ascii_case.h"
#include "posix/locked_ranges.h"
#include "storage/layout/file_header.h"
#include "volume/parameter_text.h"
#include "volume_place.h"

namespace qx::tool {

namespace {

namespace fs = std::filesystem;

// Linux has no positions with the top bit.
constexpr std::uint64_t kFirstPosition = LockPosition(0) & INT64_MAX;

struct Settings {
    explicit Settings(CLI::App& app)
        : Directory(AddText(app, "DIR", "The volume's directory; the current one if there is none")->type_name("")),
          File(AddText(app, "--file", "Only what belongs to this hashed file of the volume")->type_name("NAME")),
          Key(AddText(app, "--key", "Only what belongs to this key of the file")->type_name("KEY")->needs(File)),
          Hex(AddFlag(app, "--hex", "KEY is given as hexadecimal digits, two a byte")->needs(Key)) {}

    const CLI::Option* Directory;
    CLI::Option* File;
    CLI::Option* Key;
    const CLI::Option* Hex;
};

struct Holding {
    LockPlaces Places;
    int Process = 0;
};

// As the file is stored, which is what counts for its locks. Throws WrongUse.
std::string StoredName(const std::string& directory, const std::string& name) {
    constexpr std::string_view kPrimary = ".LK";
    std::vector<std::string> similar;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        const std::string stored = entry.path().stem();
        if (entry.path().extension() != kPrimary) {
            continue;
        }
        if (stored == name) {
            return name;
        }
        if (EqualWithoutCase(stored, name)) {
            similar.push_back(stored);
        }
    }
    if (similar.size() != 1) {
        throw WrongUse("--file " + name + ": no such hashed file in " + directory);
    }
    return similar.front();
}

// Looked up in the file itself: calls of the library would wait for the very locks that are to be shown.
std::uint32_t GroupsOf(const std::string& directory, const std::string& name) {
    std::array<std::uint8_t, kLongestFileHeader> bytes{};
    std::ifstream file(directory + name + ".LK", std::ios::binary);
    file.read(reinterpret_cast<char*>(bytes.data()), bytes.size());
    if (!file || !IsFileHeaderLength(bytes[0])) {
        throw std::runtime_error(name + ": the file header cannot be read");
    }
    return DecodeFileHeader(bytes.data()).Modulo;
}

std::vector<Holding> HoldingsOf(const LockMap& map, const std::string& lockFile) {
    std::vector<Holding> holdings;
    for (const LockedRange& range : LockedRanges(lockFile)) {
        if (range.Last < kFirstPosition) {
            continue;
        }
        const std::uint64_t first = std::max(range.First, kFirstPosition) - kFirstPosition;
        const std::uint64_t last = std::min<std::uint64_t>(range.Last - kFirstPosition, UINT32_MAX);
        for (LockPlaces& places :
             CutToUnits(map, static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(last))) {
            holdings.push_back({std::move(places), range.Process});
        }
    }
    return holdings;
}

// What of the holdings lies in `wanted`, named after it.
std::vector<Holding> Among(const LockMap& map, const std::vector<Holding>& holdings,
                           const std::vector<LockPlaces>& wanted) {
    std::vector<Holding> among;
    for (const Holding& holding : holdings) {
        for (const LockPlaces& places : wanted) {
            if (holding.Places.First <= places.Last && holding.Places.Last >= places.First) {
                Holding part{places, holding.Process};
                part.Places.First = std::max(places.First, holding.Places.First);
                part.Places.Last = std::min(places.Last, holding.Places.Last);
                part.Places.FirstNumber += (part.Places.First - places.First) / map.Users();
                among.push_back(std::move(part));
            }
        }
    }
    return among;
}

// A process that cannot be seen is known by the byte that it shares a unit with: other locks tell whose slot that is.
std::string SlotOf(const LockMap& map, const std::vector<Holding>& all, const Holding& holding) {
    const std::uint32_t base = map.BaseOf(holding.Places.Area);
    if (holding.Places.Area == LockArea::UserSlots) {
        return std::to_string(holding.Places.First - base);
    }
    if (holding.Places.Area != LockArea::IdentifierSlots && !AreWholeUnits(map, holding.Places)) {
        return std::to_string((holding.Places.First - base) % map.Users());
    }
    for (const Holding& other : all) {
        if (other.Process == holding.Process && other.Process != 0 && other.Places.Area == LockArea::UserSlots) {
            return std::to_string(other.Places.First - map.BaseOf(LockArea::UserSlots));
        }
    }
    return "-";
}

std::string Mode(const LockMap& map, const Holding& holding) {
    const LockArea area = holding.Places.Area;
    return area == LockArea::UserSlots || area == LockArea::IdentifierSlots ? "in use"
           : AreWholeUnits(map, holding.Places)                             ? "exclusive"
                                                                            : "shared";
}

std::string Offsets(const LockPlaces& places) {
    char text[32];
    std::snprintf(text, sizeof text, "%08X-%08X", places.First, places.Last);
    return text;
}

std::string Line(const std::array<std::string, 6>& cells) {
    constexpr std::array<std::size_t, 6> kWidths = {5, 8, 16, 10, 18, 0};
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        line += cells[i];
        if (i + 1 < cells.size()) {
            line.append(std::max<std::size_t>(kWidths[i], cells[i].size() + 1) - cells[i].size(), ' ');
        }
    }
    return line + '\n';
}

std::string Table(const LockMap& map, const std::vector<Holding>& all, std::vector<Holding> shown) {
    if (shown.empty()) {
        return "nothing is locked\n";
    }
    std::sort(shown.begin(), shown.end(),
              [](const Holding& a, const Holding& b) { return a.Places.First < b.Places.First; });
    std::string table = Line({"slot", "process", "program", "held", "lock offsets", "what"});
    for (const Holding& holding : shown) {
        table += Line({SlotOf(map, all, holding), holding.Process != 0 ? std::to_string(holding.Process) : "-",
                       holding.Process != 0 ? ProgramOf(holding.Process) : "-", Mode(map, holding),
                       Offsets(holding.Places), NameOf(map, holding.Places)});
    }
    return table;
}

std::string Show(const Settings& settings, const Place& place) {
    Parameters parameters;
    ApplyParameterText(FindParameterFile(place).Text, parameters);
    const LockMap map(parameters.Settings.MaximumUsers);
    std::string text;
    std::vector<LockPlaces> wanted;
    if (settings.File->count() != 0) {
        const std::string name = StoredName(place.Directory, Text(*settings.File));
        if (settings.Key->count() != 0) {
            const std::string key = Text(*settings.Key);
            wanted = {PlaceOfRecord(map, name, settings.Hex->count() != 0 ? FromHex(key) : key)};
        } else {
            wanted = PlacesOfFile(map, name, GroupsOf(place.Directory, name));
        }
        for (const LockPlaces& places : wanted) {
            text += Offsets(places) + "  " + NameOf(map, places) + " of " + name + '\n';
        }
        text += '\n';
    }
    const std::string lockFile = place.Directory + "MOXLOCKS";
    const std::vector<Holding> all = fs::exists(lockFile) ? HoldingsOf(map, lockFile) : std::vector<Holding>();
    return text + Table(map, all, wanted.empty() ? all : Among(map, all, wanted));
}

ExitStatus Run(const Settings& settings, Output& output) {
    const std::string directory = DirectoryGiven(*settings.Directory);
    return OnFile(directory, [&] {
        output.Write(Show(settings, PlaceOf(directory)));
        return ExitStatus::Done;
    });
}

}  // namespace

Command AddLocksCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("locks", "Show who has locked what on a volume.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "Every process that works with files of the volume has a user slot; what it has locked follows from the\n"
        "bytes of the file MOXLOCKS that it holds. Files and keys are in these locks as hashes only: --file and\n"
        "--key tell which of them a file or record has. Different ones may have the same.\n"
        "Processes of other users are seen as - unless the administrator asks.\n\n"
        "Examples:\n"
        "  qx locks /srv/data\n"
        "  qx locks /srv/data --file CUST\n"
        "  qx locks /srv/data --file CUST --key 1001");
    return {app, [settings](Output& output) { return Run(*settings, output); }};
}

}  // namespace qx::tool
