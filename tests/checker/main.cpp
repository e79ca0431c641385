// byte_check: checks hashed files byte by byte and prints what is wrong with them.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "byte_checker.h"

namespace {

constexpr int kDamaged = 1;
constexpr int kUsageError = 2;
constexpr int kUnreadable = 3;

constexpr const char* kUsage =
    "usage: byte_check [--fill N] [--allow-leaks] [--allow-drift] FILE...\n"
    "\n"
    "Checks the hashed file whose parts are FILE.LK and FILE.OV, prints its problems and a summary.\n"
    "\n"
    "  --fill N        the volume's fill character, 0 to 255 (0)\n"
    "  --allow-leaks   allow lost overflow frames, as failed writes leave them\n"
    "  --allow-drift   allow any Alpha and RecordCount in the header\n"
    "\n"
    "Ends with 0 when all files are perfect, 1 when one is damaged, 3 when one cannot be read, 2 for bad arguments.\n";

bool ParseByte(const char* text, uint8_t* value) {
    const char* end = text + std::strlen(text);
    const auto [last, error] = std::from_chars(text, end, *value);
    return error == std::errc() && last == end;
}

int CheckOne(const std::string& file, const qx_check::Options& options) {
    const qx_check::Report report = qx_check::CheckFile(file, options);
    for (const std::string& problem : report.problems) {
        std::cout << problem << '\n';
    }
    if (!report.readable) {
        std::cout << file << ": cannot be read\n";
        return kUnreadable;
    }
    std::cout << file << ": " << (report.Clean() ? "clean" : "DAMAGED") << ", header " << +report.header.headerLength
              << ", " << report.header.modulo << " groups, frame size " << report.header.frameSize << ", "
              << report.recordCount << " records, alpha " << report.alpha << ", overflow " << report.highWater
              << " frames: " << report.chainFrames << " in " << report.chains << " chains (longest "
              << report.longestChain << "), " << report.freeFrames << " free, " << report.listFrames << " list frames, "
              << report.leakedFrames << " leaked\n";
    return report.Clean() ? 0 : kDamaged;
}

}  // namespace

int main(int argc, char** argv) {
    qx_check::Options options;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--help") {
            std::cout << kUsage;
            return 0;
        }
        if (argument == "--fill" && i + 1 < argc && ParseByte(argv[i + 1], &options.fillCharacter)) {
            ++i;
        } else if (argument == "--allow-leaks") {
            options.allowLeakedFrames = true;
        } else if (argument == "--allow-drift") {
            options.allowCountDrift = true;
        } else if (argument.starts_with("--")) {
            std::cerr << "byte_check: bad argument " << argument << "\n" << kUsage;
            return kUsageError;
        } else {
            files.push_back(argument);
        }
    }
    if (files.empty()) {
        std::cerr << kUsage;
        return kUsageError;
    }
    int result = 0;
    for (const std::string& file : files) {
        result = std::max(result, CheckOne(file, options));
    }
    return result;
}
