#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qx::tool {

struct LockedRange {
    std::uint64_t First = 0;  // position
    std::uint64_t Last = 0;
    int Process = 0;  // 0: not to be seen from here

    bool operator==(const LockedRange&) const = default;
};

/// The byte ranges of a file that processes of this computer have locked. Locks come and go meanwhile. Throws
/// std::filesystem::filesystem_error when the file is not there.
std::vector<LockedRange> LockedRanges(const std::string& path);

/// The name of the program that a process runs; empty when it has ended.
std::string ProgramOf(int process);

}  // namespace qx::tool
