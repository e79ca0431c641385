// How often this program's threads have asked for memory.
#pragma once

#include <cstdint>

namespace qx_test {

// By the calling thread so far, through malloc and its relatives, which operator new uses too. Nothing in a sanitizer's
// build, where the sanitizer has these functions to itself.
uint64_t Allocations();
bool AllocationsAreCounted();

}  // namespace qx_test
