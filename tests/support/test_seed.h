// Where the random numbers of a test begin.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>

namespace qx_test {

// The value of the environment variable CORVANE_SEED, which repeats an earlier run, or else a new one. Printed.
inline uint64_t TestSeed() {
    const char* given = std::getenv("CORVANE_SEED");
    const uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 10) : std::random_device()();
    std::cout << "CORVANE_SEED=" << seed << std::endl;
    return seed;
}

}  // namespace qx_test
