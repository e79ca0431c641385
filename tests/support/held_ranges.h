// What the operating system says is locked.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qx_test {

// First and last position.
using Range = std::pair<uint64_t, uint64_t>;

// The ranges of a file that anybody holds exclusively, in order; ranges side by side are one.
std::vector<Range> HeldRanges(const std::string& path);

// The same form for ranges in any order.
std::vector<Range> Joined(std::vector<Range> ranges);

}  // namespace qx_test
