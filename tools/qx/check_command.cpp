#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "arguments.h"
#include "chain_bars.h"
#include "command.h"
#include "damage_text.h"
#include "file_load.h"
#include "file_scan.h"
#include "group_totals.h"
#include "interrupt.h"
#include "number_text.h"
#include "sizing.h"
#include "storage/layout/file_header.h"

namespace qx::tool {

namespace {

struct Settings {
    explicit Settings(CLI::App& app) : Files(AddTexts(app, "FILE", "Hashed files", 1)->required()) {}

    const CLI::Option* Files;
};

std::string Percent(std::uint64_t part, std::uint64_t whole) {
    return whole == 0 ? "-" : OneDecimal(100 * static_cast<double>(part) / static_cast<double>(whole)) + " %";
}

/// "1 frame 80.1 %, 2 frames 18.8 %; longest 2": how many groups have how many frames.
std::string ChainsText(const GroupTotals& totals) {
    std::string text;
    for (const ChainBar& bar : ChainBars(totals)) {
        text += (text.empty() ? "" : ", ") + bar.Label + ' ' + Percent(bar.Groups, totals.Groups - totals.Damaged);
    }
    return text + "; longest " + Grouped(totals.Chains.rbegin()->first);
}

std::string RecordsText(const HeaderValues& header, const GroupTotals& totals) {
    std::string text = Grouped(totals.Records);
    if (totals.Records > 0) {
        text += ", on average " +
                OneDecimal(static_cast<double>(totals.RecordBytes) / static_cast<double>(totals.Records)) +
                " bytes as stored";
    }
    if (header.Version > 100 && totals.Damaged == 0 && header.RecordCount != totals.Records) {
        text += " (the header says " + Grouped(header.RecordCount) + ")";
    }
    return text;
}

std::string OverflowText(const FileMeasures& measures, const GroupTotals& totals) {
    const std::uint64_t frames = measures.HighWater - std::uint64_t{1};
    std::string text = Counted(frames, "frame") + ": " + Grouped(totals.OverflowFrames) + " in chains, " +
                       Grouped(measures.FreeFrames) + " free (listed in " + Counted(measures.ListFrames, "frame") + ")";
    const std::uint64_t known = totals.OverflowFrames + measures.FreeFrames;
    if (totals.Damaged == 0 && frames > known) {
        text += ", " + Grouped(frames - known) + " lost; a copy does without them";
    }
    return text;
}

/// The load above which a group is added.
std::uint64_t LoadLimit(const HeaderValues& header, const GroupTotals& totals) {
    return std::uint64_t{FileLoad(header).ThresholdBytes} * (totals.Groups - totals.Damaged);
}

std::string Summary(const FileScan& scan, const GroupTotals& totals) {
    const HeaderValues& header = scan.Header();
    std::string text = Row("Groups", Grouped(totals.Groups) + " with frames of " + Counted(header.FrameSize, "byte") +
                                         (totals.Damaged == 0 ? "" : "; the damaged ones are not in what follows"));
    text += Row("Load", Percent(totals.Load, LoadLimit(header, totals)) + " of the threshold");
    text += Row("Records", RecordsText(header, totals));
    if (!totals.Chains.empty()) {
        text += Row("Chains", ChainsText(totals));
    }
    if (totals.OutOfOrder > 0) {
        text += Row("", Grouped(totals.OutOfOrder) + " of them with frames out of order");
    }
    if (totals.Records > 0) {
        char visits[32];
        std::snprintf(visits, sizeof visits, "%.2f", totals.VisitsPerRead());
        text += Row("A read visits", std::string(visits) + " frames on average");
    }
    if (scan.Measures() != nullptr) {
        text += Row("Overflow file", OverflowText(*scan.Measures(), totals));
    }
    return text;
}

/// Why reads visit many frames, and what helps. Empty if they do not.
std::string Advice(const std::string& name, const HeaderValues& header, const GroupTotals& totals) {
    constexpr std::uint64_t kFewRecords = 100;  // with which chance does what it likes
    constexpr double kMoreThanExpected = 1.2;
    if (totals.VisitsPerRead() < kManyVisits || totals.Records < kFewRecords) {
        return "";
    }
    const double recordBytes = static_cast<double>(totals.RecordBytes) / static_cast<double>(totals.Records);
    const SizingNeed need = {.Records = totals.Records, .StoredBytes = recordBytes, .Threshold = header.Threshold};
    const Sizing sizing = Advise(need);
    const double expected = ExpectedVisits(need, header.FrameSize);
    std::string text = name + ": ";
    if (sizing.FrameSize > header.FrameSize && expected >= kManyVisits) {
        text += "has outgrown its frames, more groups would not help";
    } else if (totals.Load > LoadLimit(header, totals)) {
        text += header.SizeLock >= 2 ? "has too few groups and keeps them, as its size is locked"
                                     : "has too few groups and has not added the others yet";
    } else if (totals.VisitsPerRead() < kMoreThanExpected * expected) {
        return "";
    } else {
        return text + "has many records in few groups because of their keys; see qx map";
    }
    const bool needs120 = header.Version < kVersion120 && sizing.FrameSize > kLargestFrame110;
    return text + ". With " + Counted(sizing.Modulo, "group") + " of " + Counted(sizing.FrameSize, "byte") +
           " a read would visit " + OneDecimal(sizing.Visits) + " frames: qx copy " + name + " NEW --fit" +
           (needs120 ? " --version 120" : "");
}

// Returns whether there is damage.
bool Check(const std::string& name, FileScan& scan, ProgressLine& progress, Output& output) {
    bool damaged = false;
    const auto tell = [&](std::optional<std::uint32_t> group, const Damage& damage) {
        damaged = true;
        progress.Clear();
        output.WriteLine(name + ": " + DamageText(group, damage));
    };
    if (scan.FileDamage()) {
        tell(std::nullopt, *scan.FileDamage());
    }
    if (!scan.HasGroups()) {
        return damaged;
    }
    GroupTotals totals;
    scan.ForEachGroup(progress, [&](std::uint32_t group, const GroupVerification& result) {
        if (result.Damage) {
            tell(group, *result.Damage);
        }
        totals.Add(scan.Header(), group, result);
    });
    progress.Clear();
    output.WriteLine(name + ": " +
                     (totals.Damaged > 0 ? Counted(totals.Damaged, "damaged group")
                      : damaged          ? "all groups are in order"
                                         : "in order"));
    output.Write(Summary(scan, totals));
    const std::string advice = Advice(name, scan.Header(), totals);
    if (!advice.empty()) {
        output.WriteLine(advice);
    }
    return damaged;
}

ExitStatus Run(const Settings& settings, Output& output) {
    WatchForInterrupt();
    ExitStatus status = ExitStatus::Done;
    for (const std::string& name : Texts(*settings.Files)) {
        status = std::max(status, OnFile(name, [&] {
                              return ScanFile(name, [&](FileScan& scan, ProgressLine& progress) {
                                  return Check(name, scan, progress, output);
                              });
                          }));
        if (InterruptRequested()) {
            break;
        }
    }
    return status;
}

}  // namespace

Command AddCheckCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("check", "Look for damage, and tell how files are stored.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "Reads every group and changes nothing. Files may be in use meanwhile, but keep their number of groups.\n"
        "What is wrong is told by file, group and place; of a group only the first thing. A file whose frames\n"
        "are too small for what it holds is told so. The exit status is 1 when there is damage.\n\n"
        "Examples:\n"
        "  qx check CUST\n"
        "  qx check CUST ORDERS");
    return {app, [settings](Output& output) { return Run(*settings, output); }};
}

}  // namespace qx::tool
