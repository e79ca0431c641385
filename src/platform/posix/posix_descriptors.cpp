#include "platform/posix/posix_descriptors.h"

#include <atomic>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <unistd.h>

namespace qx {

namespace {

// More than this many descriptors are more than a process can have with the system's usual settings.
constexpr size_t kMostDescriptors = size_t{1} << 20;
constexpr size_t kWordBits = 64;

// A bit for each open descriptor. No lock guards them: one might be held for ever in a new process.
constinit std::atomic<uint64_t> openBits[kMostDescriptors / kWordBits] = {};
constinit std::atomic<size_t> wordsUsed{0};

uint64_t BitOf(int descriptor) {
    return uint64_t{1} << (static_cast<size_t>(descriptor) % kWordBits);
}

bool Note(int descriptor) {
    const size_t word = static_cast<size_t>(descriptor) / kWordBits;
    if (word >= std::size(openBits)) {
        return false;
    }
    openBits[word] |= BitOf(descriptor);
    size_t used = wordsUsed;
    while (used <= word && !wordsUsed.compare_exchange_weak(used, word + 1)) {
    }
    return true;
}

}  // namespace

int OpenDescriptor(const char* path, int flags) {
    int descriptor;
    do {
        descriptor = ::open(path, flags | O_CLOEXEC, 0666);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor >= 0 && !Note(descriptor)) {
        ::close(descriptor);
        errno = EMFILE;
        return -1;
    }
    return descriptor;
}

void CloseDescriptor(int descriptor) {
    openBits[static_cast<size_t>(descriptor) / kWordBits] &= ~BitOf(descriptor);
    ::close(descriptor);
}

void CloseInheritedDescriptors() {
    for (size_t word = 0; word < wordsUsed; ++word) {
        for (uint64_t bits = openBits[word].exchange(0); bits != 0; bits &= bits - 1) {
            ::close(static_cast<int>(word * kWordBits) + std::countr_zero(bits));
        }
    }
}

}  // namespace qx
