#include "cost/allocation_count.h"

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define COUNTED 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define COUNTED 0
#endif
#endif
#ifndef COUNTED
#define COUNTED 1
#endif

namespace qx_test {

namespace {

thread_local uint64_t allocations = 0;

}  // namespace

uint64_t Allocations() {
    return allocations;
}

bool AllocationsAreCounted() {
    return COUNTED != 0;
}

}  // namespace qx_test

#if COUNTED

// The C library's own functions under the names that it keeps for programs that put theirs in between. What they hand
// out goes back through its free, which stays as it is.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

void* malloc(size_t size) {
    ++qx_test::allocations;
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    ++qx_test::allocations;
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
    ++qx_test::allocations;
    return __libc_realloc(block, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    ++qx_test::allocations;
    return __libc_memalign(alignment, size);
}
}

#endif
