#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "arguments.h"
#include "command.h"
#include "hashed_file.h"
#include "hex.h"
#include "messages.h"
#include "posix/watched_command.h"

namespace qx::tool {

namespace {

// Away from what commands exit with themselves, as timeout, env and nohup have it.
constexpr auto kNotHad = static_cast<ExitStatus>(124);
constexpr auto kFailed = static_cast<ExitStatus>(125);

struct Settings {
    explicit Settings(CLI::App& app)
        : File(AddFileArgument(app)),
          Program(AddTexts(app, "COMMAND", "What to run, after --", 1)->required()),
          Shared(AddFlag(app, "--shared", "Together with others that lock it shared; otherwise alone")),
          Record(AddText(app, "--record", "Lock this key rather than the file")->type_name("KEY")),
          Hex(AddFlag(app, "--hex", "KEY is given as hexadecimal digits, two a byte")->needs(Record)),
          Timeout(app.add_option("--timeout", Seconds, "How long to wait for others, 0 not to; for ever if not given")
                      ->type_name("SECONDS")
                      ->check(CLI::Range(0.0, 1e9))) {}

    const CLI::Option* File;
    const CLI::Option* Program;
    const CLI::Option* Shared;
    CLI::Option* Record;
    const CLI::Option* Hex;
    double Seconds = 0;
    const CLI::Option* Timeout;
};

// The library refuses what is not to be had at once, so waiting is asking again and again.
template <class TryLock>
bool LockWithin(std::optional<std::chrono::duration<double>> limit, TryLock&& tryLock) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kLongestRest{50};
    const Clock::time_point start = Clock::now();
    for (std::chrono::milliseconds rest{1};; rest = std::min(rest * 2, kLongestRest)) {
        if (tryLock()) {
            return true;
        }
        if (limit && Clock::now() - start >= *limit) {
            return false;
        }
        std::this_thread::sleep_for(rest);
    }
}

ExitStatus Run(const Settings& settings) {
    const std::string name = Text(*settings.File);
    const std::vector<std::string> program = Texts(*settings.Program);
    const LockKind kind = settings.Shared->count() != 0 ? LockKind::Shared : LockKind::Exclusive;
    std::optional<std::string> key;
    if (settings.Record->count() != 0) {
        key = Text(*settings.Record);
        if (settings.Hex->count() != 0) {
            key = FromHex(*key);
        }
    }
    std::optional<std::chrono::duration<double>> limit;
    if (settings.Timeout->count() != 0) {
        limit.emplace(settings.Seconds);
    }
    auto ended = ExitStatus::Done;
    const ExitStatus outcome = OnFile(name, [&] {
        HashedFile file(name, {.ReadOnly = true});
        if (!LockWithin(limit, [&] { return key ? file->TryLockRecord(*key, kind) : file->TryLock(kind); })) {
            Complain(name + ": " + (key ? "the record " + Quoted(*key) : "the file") + " is locked by somebody else");
            ended = kNotHad;
            return ExitStatus::Done;
        }
        ended = static_cast<ExitStatus>(RunWatched(program));
        return ExitStatus::Done;
    });
    return outcome == ExitStatus::Done ? ended : kFailed;
}

}  // namespace

Command AddLockCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("lock", "Run a command while a file or a record is locked.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "Locks keep apart those who ask for them; reading and writing go on regardless. The lock lasts as long\n"
        "as the command runs. Signals that ask to end are passed on to the command, which is waited for.\n\n"
        "Exit status: the command's, 128 and more if a signal ended it; 124 the lock was not to be had;\n"
        "125 failure; 126 the command cannot be started; 127 it is not there.\n\n"
        "Examples:\n"
        "  qx lock CUST -- nightly-run\n"
        "  qx lock --shared --timeout 10 CUST -- qx dump CUST\n"
        "  qx lock --record 1001 --timeout 0 CUST -- sh -c 'qx get CUST 1001 | edit | xargs qx put CUST 1001'");
    return {app, [settings](Output&) { return Run(*settings); }};
}

}  // namespace qx::tool
