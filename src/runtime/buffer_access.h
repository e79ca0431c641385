// How the library reaches the application's buffers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <qx.h>
#include <span>
#include <string_view>

namespace qx {

// A session's buffer callback. A refusal is raised with the status that the callback left; a callback that leaves none
// is reported as 160.
class BufferAccess {
  public:
    BufferAccess() = default;
    explicit BufferAccess(BufferCallback callback) : callback_(callback) {}

    BufferCallback Callback() const { return callback_; }

    // The bytes of a buffer, which stay valid until the running call returns.
    std::string_view Get(uint32_t buffer) const;

    // The buffer at least `length` bytes long, keeping what it holds.
    std::span<uint8_t> Extend(uint32_t buffer, uint32_t length) const;

    // The buffer made `length` bytes long.
    std::span<uint8_t> Allocate(uint32_t buffer, uint32_t length) const;

    // The same; a callback that reports another length has refused it.
    std::span<uint8_t> AllocateExactly(uint32_t buffer, uint32_t length) const;

  private:
    std::span<uint8_t> Call(uint32_t operation, uint32_t buffer, uint32_t length) const;
    std::span<uint8_t> CallForRoom(uint32_t operation, uint32_t buffer, uint32_t length) const;

    BufferCallback callback_ = nullptr;
};

}  // namespace qx
