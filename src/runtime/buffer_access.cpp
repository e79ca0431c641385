#include "runtime/buffer_access.h"

#include "runtime/status.h"

namespace qx {

namespace {
enum Operation : uint32_t { kGet = 0, kExtend = 1, kAllocate = 2 };
}

// A callback that answers success without an address has refused the buffer all the same.
std::span<uint8_t> BufferAccess::Call(uint32_t operation, uint32_t buffer, uint32_t length) const {
    StatusRecord status = MakeStatus(Code::BufferRefused);
    uint32_t outLength = 0;
    void* address = nullptr;
    if (callback_ == nullptr || callback_(operation, buffer, length, &outLength, &address, &status) == 0) {
        Raise(status);
    }
    if (address == nullptr && (length > 0 || outLength > 0)) {
        Raise(Code::BufferRefused);
    }
    return {static_cast<uint8_t*>(address), outLength};
}

std::string_view BufferAccess::Get(uint32_t buffer) const {
    const std::span<uint8_t> bytes = Call(kGet, buffer, 0);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// So has one whose buffer is too small.
std::span<uint8_t> BufferAccess::CallForRoom(uint32_t operation, uint32_t buffer, uint32_t length) const {
    const std::span<uint8_t> bytes = Call(operation, buffer, length);
    if (bytes.size() < length) {
        Raise(Code::BufferRefused);
    }
    return bytes;
}

std::span<uint8_t> BufferAccess::Extend(uint32_t buffer, uint32_t length) const {
    return CallForRoom(kExtend, buffer, length);
}

std::span<uint8_t> BufferAccess::Allocate(uint32_t buffer, uint32_t length) const {
    return CallForRoom(kAllocate, buffer, length).first(length);
}

std::span<uint8_t> BufferAccess::AllocateExactly(uint32_t buffer, uint32_t length) const {
    const std::span<uint8_t> bytes = Call(kAllocate, buffer, length);
    if (bytes.size() != length) {
        Raise(Code::BufferRefused);
    }
    return bytes;
}

}  // namespace qx
