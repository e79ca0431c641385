#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "arguments.h"
#include "command.h"
#include "damage_text.h"
#include "file_scan.h"
#include "group_map.h"
#include "interrupt.h"
#include "map_svg.h"
#include "map_text.h"
#include "messages.h"
#include "number_text.h"
#include "terminal.h"

namespace qx::tool {

namespace {

constexpr std::size_t kNarrowest = 30;
constexpr std::size_t kWidest = 1000;

/// Columns of the terminal, as far as the shell tells.
std::size_t TerminalWidth() {
    constexpr std::size_t kUsual = 80;
    const char* columns = std::getenv("COLUMNS");
    const std::size_t told = columns == nullptr ? 0 : std::strtoul(columns, nullptr, 10);
    return told == 0 ? kUsual : std::clamp(told, kNarrowest, kWidest);
}

struct Settings {
    explicit Settings(CLI::App& app)
        : File(AddFileArgument(app)),
          Svg(AddText(app, "--svg", "Draw it into this file instead")->type_name("OUT")),
          Width(TerminalWidth()) {
        app.add_option("--width", Width, "Characters of a line; otherwise COLUMNS from the environment, or 80")
            ->check(CLI::Range(kNarrowest, kWidest))
            ->type_name("N");
    }

    const CLI::Option* File;
    const CLI::Option* Svg;
    std::size_t Width;
};

void Save(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) {
        throw std::runtime_error(path + ": cannot be written");
    }
}

std::string Caption(const std::string& name, const GroupMap& map, const std::string& cell) {
    return name + ": " + Counted(map.Header().Modulo, "group") + " with frames of " +
           Counted(map.Header().FrameSize, "byte") + ", " + Counted(map.Totals().Records, "record") +
           (map.GroupsPerCell() == 1 ? "" : "; a " + cell + " is " + Grouped(map.GroupsPerCell()) + " groups");
}

// Returns whether there is damage.
bool Draw(const Settings& settings, const std::string& name, FileScan& scan, ProgressLine& progress, Output& output) {
    if (scan.FileDamage()) {
        Complain(name + ": " + DamageText(std::nullopt, *scan.FileDamage()));
    }
    if (!scan.HasGroups()) {
        return true;
    }
    const bool asSvg = settings.Svg->count() != 0;
    const std::uint64_t cells = asSvg ? kMostSvgCells : MapTextShape(scan.Header().Modulo, settings.Width).MostCells;
    GroupMap map(scan.Header(), cells);
    scan.ForEachGroup(progress, [&](std::uint32_t group, const GroupVerification& result) { map.Add(group, result); });
    progress.Clear();
    if (asSvg) {
        Save(Text(*settings.Svg), MapSvg(map, Caption(name, map, "cell")));
    } else {
        output.WriteLine(Caption(name, map, "sign"));
        output.Write(MapText(map, settings.Width, IsTerminal(Stream::Output)));
    }
    if (map.Totals().Damaged > 0) {
        Complain(name + ": " + Counted(map.Totals().Damaged, "damaged group") + "; see qx check");
    }
    return scan.FileDamage() || map.Totals().Damaged > 0;
}

ExitStatus Run(const Settings& settings, Output& output) {
    WatchForInterrupt();
    const std::string name = Text(*settings.File);
    return OnFile(name, [&] {
        return ScanFile(
            name, [&](FileScan& scan, ProgressLine& progress) { return Draw(settings, name, scan, progress, output); });
    });
}

}  // namespace

Command AddMapCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("map", "Draw how full the groups of a file are.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "Every sign is a group, or the average of a few neighbours. An even picture with groups of up to one\n"
        "frame is a healthy file; many groups of several frames want more groups or larger frames (qx check\n"
        "says which), and a few very full ones among empty ones come from keys that are too much alike.\n\n"
        "Examples:\n"
        "  qx map CUST\n"
        "  qx map CUST --width 120\n"
        "  qx map CUST --svg cust.svg");
    return {app, [settings](Output& output) { return Run(*settings, output); }};
}

}  // namespace qx::tool
