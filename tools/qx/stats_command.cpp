#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "arguments.h"
#include "command.h"
#include "hashed_file.h"
#include "interrupt.h"
#include "number_text.h"
#include "statistics_text.h"

namespace qx::tool {

namespace {

namespace fs = std::filesystem;

struct Settings {
    explicit Settings(CLI::App& app)
        : Subject(AddText(app, "FILE", "A hashed file or a directory; this process if there is none")->type_name("")),
          Json(AddFlag(app, "--json", "Print one JSON object")) {
        app.add_option("--watch", WatchSeconds, "Print every so many seconds what has changed in FILE")
            ->type_name("SECONDS")
            ->check(CLI::Range(1U, 86400U));
    }

    const CLI::Option* Subject;
    const CLI::Option* Json;
    std::uint32_t WatchSeconds = 0;
};

// A volume is in use, and can be reported on, while a file of it is open.
std::string AnyFileIn(const std::string& directory) {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        if (entry.path().extension() == ".LK") {
            names.push_back((entry.path().parent_path() / entry.path().stem()).string());
        }
    }
    if (names.empty()) {
        throw std::runtime_error(directory + ": there is no hashed file in it");
    }
    return *std::min_element(names.begin(), names.end());
}

StatisticsReport ReportOn(const std::string& subject) {
    if (fs::is_directory(subject)) {
        HashedFile file(AnyFileIn(subject), {.ReadOnly = true});
        return file.InSession().Statistics(StatisticsKind::Volume, subject + '/');
    }
    HashedFile file(subject, {.ReadOnly = true});
    return file.InSession().Statistics(StatisticsKind::File, subject);
}

// What other processes do to a file shows in its header.
constexpr std::string_view kWatched[] = {"Record Count", "Alpha", "Modulo"};

std::string Aligned(const std::string& text) {
    constexpr std::size_t kWidth = 16;
    return std::string(kWidth - std::min(kWidth - 1, text.size()), ' ') + text;
}

std::string Change(double before, double now, double seconds) {
    const double rate = std::round((now - before) / seconds);
    const std::string text = Grouped(static_cast<std::uint64_t>(std::abs(rate)));
    return rate < 0 ? '-' + text : text;
}

void Pause(std::uint32_t seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!InterruptRequested() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

ExitStatus Watch(const std::string& name, std::uint32_t seconds, Output& output) {
    if (fs::is_directory(name)) {
        throw WrongUse("--watch is for a hashed file, not for a directory");
    }
    WatchForInterrupt();
    HashedFile file(name, {.ReadOnly = true});
    output.WriteLine(Aligned("records") + Aligned("/s") + Aligned("load bytes") + Aligned("/s") + Aligned("groups") +
                     Aligned("/s"));
    std::vector<double> before;
    while (!InterruptRequested()) {
        file->Header();
        const StatisticsReport report = file.InSession().Statistics(StatisticsKind::File, name);
        std::vector<double> now;
        std::string line;
        for (const std::string_view label : kWatched) {
            const std::uint64_t value = NumberOf(report, label);
            now.push_back(static_cast<double>(value));
            const std::size_t i = now.size() - 1;
            line += Aligned(Grouped(value)) + Aligned(before.empty() ? "" : Change(before[i], now[i], seconds));
        }
        before = now;
        output.WriteLine(line);
        output.Finish();
        Pause(seconds);
    }
    return ExitStatus::Done;
}

ExitStatus Run(const Settings& settings, Output& output) {
    const std::string subject = Text(*settings.Subject);
    const bool json = settings.Json->count() != 0;
    if (settings.WatchSeconds != 0 && (subject.empty() || json)) {
        throw WrongUse("--watch is for a hashed file, and not for --json");
    }
    const auto write = [&](const StatisticsReport& report) {
        output.Write(json ? StatisticsJson(report) : StatisticsTable(report));
        return ExitStatus::Done;
    };
    if (subject.empty()) {
        return write(ProcessStatistics());
    }
    return OnFile(subject, [&] {
        return settings.WatchSeconds != 0 ? Watch(subject, settings.WatchSeconds, output) : write(ReportOn(subject));
    });
}

}  // namespace

Command AddStatsCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("stats", "Show what the library knows and has counted.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "Each process counts for itself, so the counts here are those of looking; what other processes have\n"
        "done to a file shows in its records, load and groups, which --watch follows until it is interrupted.\n"
        "For the counts of a long import see qx import --stats.\n\n"
        "Examples:\n"
        "  qx stats CUST\n"
        "  qx stats . --json\n"
        "  qx stats CUST --watch 5");
    return {app, [settings](Output& output) { return Run(*settings, output); }};
}

}  // namespace qx::tool
