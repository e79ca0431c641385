// Watches and fails this thread's allocations; the operators new of the test program count for it.
#pragma once

#include <cstdint>

namespace qx_test {

// How many allocations this thread has made with operator new.
std::uint64_t Allocations();

// From construction to destruction every allocation of at least `bytes` by this thread throws std::bad_alloc.
class MemoryShortage {
  public:
    explicit MemoryShortage(std::uint64_t bytes);
    ~MemoryShortage();
    MemoryShortage(const MemoryShortage&) = delete;
    MemoryShortage& operator=(const MemoryShortage&) = delete;
};

}  // namespace qx_test
