// What most tests work with: a directory of their own, and buffers for the C interface.
#pragma once

#include <cstdint>
#include <filesystem>
#include <qx.h>
#include <string>
#include <string_view>
#include <vector>

namespace qx_test {

// A directory that is removed when this ends.
class TestDirectory {
  public:
    TestDirectory();
    ~TestDirectory();
    TestDirectory(const TestDirectory&) = delete;
    TestDirectory& operator=(const TestDirectory&) = delete;

    const std::string& Path() const { return path_; }
    std::string File(std::string_view name) const { return path_ + '/' + std::string(name); }

  private:
    std::string path_;
};

std::string ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, std::string_view bytes);

// The calling thread's buffers: object number i stands for Buffer(i).
inline constexpr uint32_t kBuffers = 8;
std::string& Buffer(uint32_t number);

// The callback of those buffers. The next `refuse`-th call (1 is the next one) of an operation can be made to fail.
int32_t TestCallback(uint32_t operation, uint32_t buffer, uint32_t length, uint32_t* outLength, void** outAddress,
                     StatusRecord* status);
void RefuseCallback(uint32_t operation, uint32_t nth, StatusRecord left);
void AcceptCallbacks();

// Bytes of one hashed file, both of its operating-system files.
struct FileBytes {
    std::string Primary;
    std::string Overflow;

    friend bool operator==(const FileBytes&, const FileBytes&) = default;
};
FileBytes ReadHashedFile(const std::string& path);

}  // namespace qx_test
