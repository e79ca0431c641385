#include "face/allocation_watch.h"

#include <cstdlib>
#include <new>

namespace qx_test {

namespace {

thread_local std::uint64_t allocations = 0;
thread_local std::uint64_t failFrom = UINT64_MAX;

}  // namespace

std::uint64_t Allocations() {
    return allocations;
}

MemoryShortage::MemoryShortage(std::uint64_t bytes) {
    failFrom = bytes;
}
MemoryShortage::~MemoryShortage() {
    failFrom = UINT64_MAX;
}

}  // namespace qx_test

void* operator new(std::size_t size) {
    ++qx_test::allocations;
    void* memory = size < qx_test::failFrom ? std::malloc(size) : nullptr;
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

// A sanitizer's own would not go with the operators delete below.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
