#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include "arguments.h"
#include "command.h"
#include "damage_text.h"
#include "file_scan.h"
#include "group_map.h"
#include "hashed_file.h"
#include "interrupt.h"
#include "long_job.h"
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

std::string Caption(const std::string& name, const GroupMap& map) {
    return name + ": " + Counted(map.Header().Modulo, "group") + " with frames of " +
           Counted(map.Header().FrameSize, "byte") + ", " + Counted(map.Totals().Records, "record") +
           (map.GroupsPerCell() == 1 ? "" : "; a sign is " + Grouped(map.GroupsPerCell()) + " groups");
}

class Drawing {
  public:
    Drawing(const Settings& settings, Output& output)
        : settings_(settings), name_(Text(*settings.File)), output_(output) {}

    ExitStatus Run() {
        HashedFile file(name_, {.ReadOnly = true});
        const ExitStatus status = RunJob(
            progress_, [&] { return name_; }, [&] { Draw(*file.operator->()); });
        return status == ExitStatus::Done && damaged_ ? ExitStatus::NotFound : status;
    }

  private:
    void Draw(File& file) {
        FileScan scan(file);
        if (scan.FileDamage()) {
            damaged_ = true;
            Complain(name_ + ": " + DamageText(std::nullopt, *scan.FileDamage()));
        }
        if (!scan.HasGroups()) {
            return;
        }
        const bool asSvg = settings_.Svg->count() != 0;
        const std::uint64_t cells =
            asSvg ? kMostSvgCells : MapTextShape(scan.Header().Modulo, settings_.Width).MostCells;
        GroupMap map(scan.Header(), cells);
        scan.ForEachGroup(progress_,
                          [&](std::uint32_t group, const GroupVerification& result) { map.Add(group, result); });
        progress_.Clear();
        if (asSvg) {
            Save(Text(*settings_.Svg), MapSvg(map, name_));
        } else {
            output_.WriteLine(Caption(name_, map));
            output_.Write(MapText(map, settings_.Width, IsTerminal(Stream::Output)));
        }
        if (map.Totals().Damaged > 0) {
            damaged_ = true;
            Complain(name_ + ": " + Counted(map.Totals().Damaged, "damaged group") + "; see qx check");
        }
    }

    const Settings& settings_;
    const std::string name_;
    Output& output_;
    ProgressLine progress_{true, "group"};
    bool damaged_ = false;
};

ExitStatus Run(const Settings& settings, Output& output) {
    WatchForInterrupt();
    return OnFile(Text(*settings.File), [&] { return Drawing(settings, output).Run(); });
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
