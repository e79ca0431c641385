#include "support/test_library.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <stdlib.h>
#include <unistd.h>

namespace qx_test {

namespace {

// In memory if there is a place for that: a file that is cut back again and again makes a disk wait for its journal.
std::filesystem::path Parent() {
    constexpr const char* kInMemory = "/dev/shm";
    const bool inMemory = std::getenv("TMPDIR") == nullptr && ::access(kInMemory, W_OK | X_OK) == 0;
    return inMemory ? kInMemory : std::filesystem::temp_directory_path();
}

}  // namespace

TestDirectory::TestDirectory() {
    std::string pattern = (Parent() / "corvane.XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("no directory for the test: " + pattern);
    }
    path_ = pattern;
}

TestDirectory::~TestDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string ReadWholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteWholeFile(const std::string& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

namespace {

struct Refusal {
    uint32_t Operation = 0;
    uint32_t Countdown = 0;
    StatusRecord Left{};
};

thread_local std::string buffers[kBuffers];
thread_local Refusal refusal;

}  // namespace

std::string& Buffer(uint32_t number) {
    return buffers[number];
}

int32_t TestCallback(uint32_t operation, uint32_t buffer, uint32_t length, uint32_t* outLength, void** outAddress,
                     StatusRecord* status) {
    if (refusal.Countdown > 0 && operation == refusal.Operation && --refusal.Countdown == 0) {
        *status = refusal.Left;
        return 0;
    }
    std::string& bytes = buffers[buffer];
    if (operation == 2 || (operation == 1 && bytes.size() < length)) {
        bytes.resize(length);
    }
    *outLength = static_cast<uint32_t>(bytes.size());
    *outAddress = bytes.data();
    return 1;
}

void RefuseCallback(uint32_t operation, uint32_t nth, StatusRecord left) {
    refusal = {operation, nth, left};
}

void AcceptCallbacks() {
    refusal = {};
}

FileBytes ReadHashedFile(const std::string& path) {
    return {ReadWholeFile(path + ".LK"), ReadWholeFile(path + ".OV")};
}

}  // namespace qx_test
