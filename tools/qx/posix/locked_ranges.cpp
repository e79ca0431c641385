#include "locked_ranges.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace qx::tool {

namespace {

namespace fs = std::filesystem;

bool IsFile(const fs::path& path, const struct stat& file) {
    struct stat other = {};
    return stat(path.c_str(), &other) == 0 && other.st_dev == file.st_dev && other.st_ino == file.st_ino;
}

// A lock as the system writes it: KIND ADVISORY|MANDATORY READ|WRITE PROCESS DEVICE:INODE FIRST LAST|EOF, behind a
// number. False for anything else, such as one that is waited for.
bool ReadLock(const std::string& line, std::string& file, LockedRange& range) {
    std::istringstream words(line);
    std::string number, kind, advice, mode, last;
    words >> number >> kind >> advice >> mode >> range.Process >> file >> range.First >> last;
    if (!words) {
        return false;
    }
    range.Last = last == "EOF" ? INT64_MAX : std::strtoull(last.c_str(), nullptr, 10);
    return true;
}

// The system names the holder of such locks by no number, as descriptors may be shared; the holder's own list of
// descriptors does. `names` receives what the system calls the file there, which some file systems do differently from
// stat.
void AddLocksOf(int process, const struct stat& file, std::vector<LockedRange>& ranges, std::set<std::string>& names) {
    constexpr std::string_view kLock = "lock:";
    const fs::path directory = "/proc/" + std::to_string(process);
    std::error_code error;
    for (fs::directory_iterator entry(directory / "fd", error), end; !error && entry != end; entry.increment(error)) {
        if (!IsFile(entry->path(), file)) {
            continue;
        }
        std::ifstream information(directory / "fdinfo" / entry->path().filename());
        for (std::string line; std::getline(information, line);) {
            LockedRange range;
            std::string name;
            if (line.starts_with(kLock) && ReadLock(line.substr(kLock.size()), name, range)) {
                range.Process = process;
                ranges.push_back(range);
                names.insert(name);
            }
        }
    }
}

std::string NameInLocks(const struct stat& file) {
    std::ostringstream name;
    name << std::hex << std::setfill('0') << std::setw(2) << major(file.st_dev) << ':' << std::setw(2)
         << minor(file.st_dev) << ':' << std::dec << file.st_ino;
    return name.str();
}

}  // namespace

std::vector<LockedRange> LockedRanges(const std::string& path) {
    struct stat file = {};
    if (stat(path.c_str(), &file) != 0) {
        throw fs::filesystem_error("no file", path, std::error_code(errno, std::generic_category()));
    }
    std::vector<LockedRange> ranges;
    std::set<std::string> names = {NameInLocks(file)};
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        int process = 0;
        if (std::from_chars(name.data(), name.data() + name.size(), process).ptr == name.data() + name.size()) {
            AddLocksOf(process, file, ranges, names);
        }
    }
    // What is left are the locks of processes that this one may not look into.
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        LockedRange range;
        std::string name;
        if (!ReadLock(line, name, range) || !names.contains(name)) {
            continue;
        }
        range.Process = std::max(range.Process, 0);
        const bool known = std::any_of(ranges.begin(), ranges.end(), [&](const LockedRange& other) {
            return other.First == range.First && other.Last == range.Last;
        });
        if (!known) {
            ranges.push_back(range);
        }
    }
    return ranges;
}

std::string ProgramOf(int process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
}

}  // namespace qx::tool
