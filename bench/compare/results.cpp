#include "results.h"

#include <algorithm>
#include <iomanip>
#include <ostream>
#include <sstream>

namespace qx::compare {

namespace {

constexpr int kNameWidth = 15;
constexpr int kCellWidth = 11;

double CostOf(const PhaseResult& result, Clock clock) {
    return clock == Clock::Wall ? result.WallNanoseconds : result.CpuNanoseconds;
}

std::string Number(double value) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(value < 10 ? 2 : value < 100 ? 1 : 0) << value;
    return text.str();
}

void PrintHeading(std::ostream& to, std::string_view first, bool sizes) {
    to << std::left << std::setw(kNameWidth) << first << std::right;
    for (const std::string_view phase : kPhaseNames) {
        to << std::setw(kCellWidth) << phase;
    }
    to << std::setw(kCellWidth) << (sizes ? "size" : "") << '\n';
}

// A phase that was cut short carries a mark.
void PrintRow(std::ostream& to, const Contest::Entry& entry, Clock clock, const CellResult* reference) {
    to << std::left << std::setw(kNameWidth) << entry.Kind->Name << std::right;
    for (size_t phase = 0; phase < kPhaseCount; ++phase) {
        const PhaseResult& result = entry.Result.Phases[phase];
        std::string cell = "-";
        if (result.Operations > 0) {
            const double cost = CostOf(result, clock);
            if (reference == nullptr) {
                cell = Number(cost / 1000);
            } else if (reference->Phases[phase].Operations > 0) {
                cell = Number(cost / CostOf(reference->Phases[phase], clock));
            }
            cell += result.CutShort ? "*" : "";
        }
        to << std::setw(kCellWidth) << cell;
    }
}

std::string Quoted(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
        }
        quoted += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
    }
    return quoted + '"';
}

void WritePhase(std::ostream& to, const PhaseResult& result) {
    to << "{\"operations\": " << result.Operations << ", \"cutShort\": " << (result.CutShort ? "true" : "false")
       << ", \"wallNanoseconds\": " << result.WallNanoseconds << ", \"cpuNanoseconds\": " << result.CpuNanoseconds
       << ", \"framesRead\": " << result.PerOperation.Reads << ", \"framesWritten\": " << result.PerOperation.Writes
       << ", \"groupLocks\": " << result.PerOperation.Locks << "}";
}

void WriteEntry(std::ostream& to, const Contest::Entry& entry) {
    to << "      {\"store\": " << Quoted(entry.Kind->Name) << ", \"description\": " << Quoted(entry.Kind->Description);
    if (!entry.Result.Error.empty()) {
        to << ", \"error\": " << Quoted(entry.Result.Error) << "}";
        return;
    }
    to << ", \"fileBytes\": " << entry.Result.FileBytes << ", \"phases\": {";
    std::string_view between = "\n";
    for (size_t phase = 0; phase < kPhaseCount; ++phase) {
        if (entry.Result.Phases[phase].Operations > 0) {
            to << between << "        " << Quoted(kPhaseNames[phase]) << ": ";
            WritePhase(to, entry.Result.Phases[phase]);
            between = ",\n";
        }
    }
    to << "}}";
}

}  // namespace

const CellResult* Contest::ResultOf(std::string_view store) const {
    const auto found = std::ranges::find(Entries, store, [](const Entry& entry) { return entry.Kind->Name; });
    return found == Entries.end() || !found->Result.Error.empty() ? nullptr : &found->Result;
}

std::string_view NameOf(Sizing sizing) {
    return sizing == Sizing::Default ? "default" : "advised";
}

std::string NameOf(const Workers& workers) {
    if (workers.Total() == 1) {
        return "1";
    }
    return workers.Threads > 1 ? std::to_string(workers.Threads) + "t" : std::to_string(workers.Processes) + "p";
}

void PrintTables(std::ostream& to, const Contest& contest, Clock clock) {
    to << "\n"
       << contest.Records.Records << " records of " << contest.Records.DataBytes << " bytes, " << NameOf(contest.Size)
       << " parameters, workers: " << NameOf(contest.Team) << "\n";
    PrintHeading(to, clock == Clock::Wall ? "us" : "us of CPU", true);
    for (const Contest::Entry& entry : contest.Entries) {
        if (!entry.Result.Error.empty()) {
            to << std::left << std::setw(kNameWidth) << entry.Kind->Name << "  FAILED: " << entry.Result.Error << "\n";
            continue;
        }
        PrintRow(to, entry, clock, nullptr);
        const auto payload = static_cast<double>(contest.Records.PayloadBytes());
        const bool isFloor = !entry.Kind->Imitates.empty();
        to << std::setw(kCellWidth) << (isFloor ? "-" : Number(static_cast<double>(entry.Result.FileBytes) / payload))
           << "\n";
    }
    for (const std::string_view name : {"qx", "qx-nolocks"}) {
        const CellResult* reference = contest.ResultOf(name);
        if (reference == nullptr) {
            continue;
        }
        PrintHeading(to, std::string("of ") + std::string(name), false);
        for (const Contest::Entry& entry : contest.Entries) {
            if (entry.Kind->Name != name && entry.Result.Error.empty()) {
                PrintRow(to, entry, clock, reference);
                to << "\n";
            }
        }
    }
    to << std::flush;
}

void WriteJson(std::ostream& to, const std::vector<Contest>& contests, uint64_t seed, uint32_t rounds) {
    to << "{\"seed\": " << seed << ", \"rounds\": " << rounds << ", \"keyBytes\": " << kKeyBytes << ", \"contests\": [";
    std::string_view between = "\n";
    for (const Contest& contest : contests) {
        to << between << "  {\"records\": " << contest.Records.Records
           << ", \"dataBytes\": " << contest.Records.DataBytes << ", \"sizing\": " << Quoted(NameOf(contest.Size))
           << ", \"processes\": " << contest.Team.Processes << ", \"threads\": " << contest.Team.Threads
           << ", \"stores\": [\n";
        for (size_t index = 0; index < contest.Entries.size(); ++index) {
            WriteEntry(to, contest.Entries[index]);
            to << (index + 1 < contest.Entries.size() ? ",\n" : "\n");
        }
        to << "    ]}";
        between = ",\n";
    }
    to << "\n]}\n";
}

}  // namespace qx::compare
