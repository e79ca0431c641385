// Times the same work on Corvane and on other stores. bench/README.md tells how to use it.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "results.h"

namespace qx::compare {

namespace {

struct Options {
    std::vector<std::string> Stores;
    std::vector<std::string> Records = {"1e5", "1e6", "1e7", "1e4x100000"};
    std::vector<std::string> Phases = {kPhaseNames.begin(), kPhaseNames.end()};
    std::vector<std::string> Sizings = {"default", "advised"};
    std::vector<std::string> Workers = {"1", "2t", "2p"};
    std::string Directory = ".";
    std::string Json;
    std::string ClockName = "wall";
    uint32_t Rounds = 1;
    double LimitSeconds = 60;
    double InsertLimitSeconds = 0;  // 0: the same
    uint64_t Seed = 1;
};

struct Plan {
    std::vector<const StoreKind*> Kinds;
    std::vector<Load> Loads;
    ForEachPhase<bool> Wanted{};
    std::vector<Sizing> Sizings;
    std::vector<Workers> Teams;
};

[[noreturn]] void Refuse(const std::string& words) {
    throw CLI::ValidationError(words);
}

// A whole number above 0, also as in 1e6.
uint64_t CountOf(const std::string& text, double most) {
    size_t used = 0;
    double value = 0;
    try {
        value = std::stod(text, &used);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used == 0 || used != text.size() || !(value >= 1 && value <= most) || value != std::floor(value)) {
        Refuse(text + " is no whole number from 1 to " + std::to_string(static_cast<uint64_t>(most)));
    }
    return static_cast<uint64_t>(value);
}

// RECORDS or RECORDSxBYTES.
Load LoadOf(const std::string& text) {
    constexpr double kMostRecords = 2e9;
    constexpr double kMostBytes = 1e9;
    constexpr uint32_t kBytes = 100;
    const size_t times = text.find('x');
    Load load{CountOf(text.substr(0, times), kMostRecords), kBytes};
    if (times != std::string::npos) {
        load.DataBytes = static_cast<uint32_t>(CountOf(text.substr(times + 1), kMostBytes));
    }
    if (load.DataBytes < kLeastDataBytes) {
        Refuse("records have at least " + std::to_string(kLeastDataBytes) + " bytes");
    }
    return load;
}

// A number, with t for threads or p for processes.
Workers WorkersOf(const std::string& text) {
    const char kind = text.empty() ? ' ' : text.back();
    const bool named = kind == 't' || kind == 'p';
    const auto number = static_cast<uint32_t>(CountOf(named ? text.substr(0, text.size() - 1) : text, kMostWorkers));
    if (!named && number > 1) {
        Refuse(text + " workers: say " + text + "t for threads or " + text + "p for processes");
    }
    return kind == 'p' ? Workers{number, 1} : Workers{1, number};
}

Plan PlanOf(const Options& options) {
    Plan plan;
    const auto wants = [&](const StoreKind& kind) {
        return options.Stores.empty() || std::ranges::find(options.Stores, kind.Name) != options.Stores.end();
    };
    for (const std::string& name : options.Stores) {
        if (FindStore(name) == nullptr) {
            Refuse("there is no store " + name);
        }
    }
    for (const StoreKind& kind : Stores()) {
        if (!wants(kind)) {
            continue;
        }
        if (!kind.Imitates.empty() && !wants(*FindStore(kind.Imitates))) {
            Refuse(std::string(kind.Name) + " repeats what " + std::string(kind.Imitates) + " did: name both");
        }
        plan.Kinds.push_back(&kind);
    }
    std::ranges::transform(options.Records, std::back_inserter(plan.Loads), LoadOf);
    std::ranges::transform(options.Workers, std::back_inserter(plan.Teams), WorkersOf);
    for (const std::string& name : options.Phases) {
        const auto* found = std::ranges::find(kPhaseNames, name);
        if (found == kPhaseNames.end()) {
            Refuse("there is no phase " + name);
        }
        plan.Wanted[static_cast<size_t>(found - kPhaseNames.begin())] = true;
    }
    for (const std::string& name : options.Sizings) {
        plan.Sizings.push_back(name == NameOf(Sizing::Advised) ? Sizing::Advised : Sizing::Default);
    }
    return plan;
}

bool Allows(const StoreKind& kind, const Workers& workers) {
    return (workers.Threads == 1 || kind.ManyThreads) && (workers.Processes == 1 || kind.ManyProcesses);
}

FloorPlan FloorOf(const CellResult& imitated) {
    FloorPlan floor;
    floor.FrameSize = imitated.FrameSize;
    floor.Frames = std::max<uint64_t>(1, imitated.FileBytes / imitated.FrameSize);
    std::ranges::transform(imitated.Phases, floor.PerOperation.begin(), &PhaseResult::PerOperation);
    return floor;
}

// Of several rounds the quickest counts: whatever else the machine did has only made the others slower.
void KeepQuickest(CellResult& kept, CellResult&& next) {
    if (!kept.Error.empty() || !next.Error.empty()) {
        kept.Error = kept.Error.empty() ? next.Error : kept.Error;
        return;
    }
    for (size_t phase = 0; phase < kPhaseCount; ++phase) {
        PhaseResult& result = kept.Phases[phase];
        const double cpu = std::min(result.CpuNanoseconds, next.Phases[phase].CpuNanoseconds);
        if (next.Phases[phase].WallNanoseconds < result.WallNanoseconds) {
            result = next.Phases[phase];
        }
        result.CpuNanoseconds = cpu;
    }
}

// The stores take turns in each round, so that what changes on the machine in the course of time touches them alike.
Contest RunContest(const Options& options, const Plan& plan, const Load& load, Sizing sizing, const Workers& team) {
    Contest contest{load, sizing, team, {}};
    for (const StoreKind* kind : plan.Kinds) {
        if (Allows(*kind, team)) {
            contest.Entries.push_back({kind, {}});
        }
    }
    for (uint32_t round = 0; round < options.Rounds; ++round) {
        for (Contest::Entry& entry : contest.Entries) {
            std::cerr << load.Records << "x" << load.DataBytes << " " << NameOf(sizing) << " " << NameOf(team)
                      << " round " << round + 1 << ": " << entry.Kind->Name << std::endl;
            CellPlan cell;
            cell.Kind = entry.Kind;
            cell.Settings.Directory = options.Directory;
            cell.Settings.Records = load;
            cell.Settings.Size = sizing;
            cell.Team = team;
            cell.Wanted = plan.Wanted;
            cell.LimitSeconds.fill(options.LimitSeconds);
            if (options.InsertLimitSeconds > 0) {
                cell.LimitSeconds[IndexOf(Phase::Insert)] = options.InsertLimitSeconds;
            }
            cell.Seed = options.Seed;
            CellResult result;
            const CellResult* imitated = contest.ResultOf(entry.Kind->Imitates);
            if (!entry.Kind->Imitates.empty() && imitated == nullptr) {
                result.Error = "there is nothing to repeat";
            } else {
                if (imitated != nullptr) {
                    cell.Settings.Floor = FloorOf(*imitated);
                }
                result = RunCell(cell);
            }
            if (round == 0) {
                entry.Result = std::move(result);
            } else {
                KeepQuickest(entry.Result, std::move(result));
            }
        }
    }
    return contest;
}

// Whether every store did its work.
bool Run(const Options& options, const Plan& plan) {
    const Clock clock = options.ClockName == "cpu" ? Clock::Cpu : Clock::Wall;
    std::ofstream json;
    if (!options.Json.empty()) {
        json.open(options.Json);
        if (!json) {
            throw std::runtime_error(options.Json + " cannot be written");
        }
    }
    bool good = true;
    std::vector<Contest> contests;
    for (const Load& load : plan.Loads) {
        for (const Sizing sizing : plan.Sizings) {
            for (const Workers& team : plan.Teams) {
                contests.push_back(RunContest(options, plan, load, sizing, team));
                for (Contest::Entry& entry : contests.back().Entries) {
                    good = good && entry.Result.Error.empty();
                    if (!plan.Wanted[IndexOf(Phase::Insert)]) {
                        entry.Result.Phases[IndexOf(Phase::Insert)] = {};
                    }
                }
                PrintTables(std::cout, contests.back(), clock);
            }
        }
    }
    if (json.is_open()) {
        WriteJson(json, contests, options.Seed, options.Rounds);
        if (!json.flush()) {
            throw std::runtime_error(options.Json + " could not be written");
        }
    }
    return good;
}

void Declare(CLI::App& app, Options& options) {
    const auto list = [&](const char* name, std::vector<std::string>& into, const char* words) {
        return app.add_option(name, into, words)->delimiter(',')->capture_default_str();
    };
    list("--stores", options.Stores, "the stores to compare; default: all");
    list("--records", options.Records, "numbers of records; 1e4x100000 is 10,000 of 100,000 bytes instead of 100");
    list("--phases", options.Phases, "what to measure");
    list("--sizings", options.Sizings, "parameters of the stores")->check(CLI::IsMember({"default", "advised"}));
    list("--workers", options.Workers, "1, or several threads as in 2t, or processes as in 2p");
    app.add_option("--directory", options.Directory, "where the stores' files are made for a while")
        ->check(CLI::ExistingDirectory)
        ->capture_default_str();
    app.add_option("--rounds", options.Rounds, "how often to do everything; the quickest counts")
        ->check(CLI::Range(1, 100))
        ->capture_default_str();
    app.add_option("--limit", options.LimitSeconds, "seconds after which a phase is cut short (*)")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--insert-limit", options.InsertLimitSeconds, "the same for inserting alone; default: the same time")
        ->check(CLI::PositiveNumber);
    app.add_option("--seed", options.Seed, "of the random order")->capture_default_str();
    app.add_option("--clock", options.ClockName, "what the tables show; the JSON has both")
        ->check(CLI::IsMember({"wall", "cpu"}))
        ->capture_default_str();
    app.add_option("--json", options.Json, "write the results to this file too");
    std::string stores = "Stores:\n";
    for (const StoreKind& kind : Stores()) {
        stores += "  " + std::string(kind.Name) + ": " + std::string(kind.Description) + "\n";
    }
    app.footer(stores);
}

}  // namespace

}  // namespace qx::compare

int main(int argc, char** argv) {
    using namespace qx::compare;
    CLI::App app("Times the same work on Corvane and on other stores.");
    Options options;
    Declare(app, options);
    try {
        app.parse(argc, argv);
        return Run(options, PlanOf(options)) ? 0 : 1;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception& error) {
        std::cerr << "compare: " << error.what() << "\n";
        return 1;
    }
}
