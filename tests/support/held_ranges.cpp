#include "support/held_ranges.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>

namespace qx_test {

namespace {

void ReadHeldRanges(const std::string& inode, std::vector<Range>& ranges) {
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number, kind, advice, mode, process, file, end;
        uint64_t start = 0;
        words >> number >> kind >> advice >> mode >> process >> file >> start >> end;
        if (words && mode == "WRITE" && file.ends_with(inode)) {
            ranges.emplace_back(start, end == "EOF" ? INT64_MAX : std::stoull(end));
        }
    }
}

}  // namespace

// The list is read in pieces, and what programs elsewhere give up in between makes it skip lines: what is seen in some
// of several readings is held.
std::vector<Range> HeldRanges(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        throw std::runtime_error("no file " + path);
    }
    const std::string inode = ':' + std::to_string(status.st_ino);
    std::vector<Range> held;
    for (int alike = 0; alike < 3; ++alike) {
        std::vector<Range> ranges = held;
        ReadHeldRanges(inode, ranges);
        ranges = Joined(std::move(ranges));
        if (ranges != held) {
            held = std::move(ranges);
            alike = 0;
        }
    }
    return held;
}

std::vector<Range> Joined(std::vector<Range> ranges) {
    std::sort(ranges.begin(), ranges.end());
    std::vector<Range> joined;
    for (const Range& range : ranges) {
        if (!joined.empty() && range.first <= joined.back().second + 1) {
            joined.back().second = std::max(joined.back().second, range.second);
        } else {
            joined.push_back(range);
        }
    }
    return joined;
}

}  // namespace qx_test
