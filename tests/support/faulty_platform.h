// The operating system with faults on order: it wraps the real services, counts every call that can fail, and makes
// those fail that a test picked.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace qx_test {

// The calls that can fail.
enum class Call : uint32_t {
    Exists,
    Create,
    Open,
    ClaimForDelete,
    Delete,
    Read,
    Write,
    GetSize,
    SetSize,
    Flush,
    Lock,
    EventCreate,
    EventReset,
    HeapCreate,
    HeapAllocate,
    BufferAllocate,
    ThreadStart,
    PinModule,
    CurrentDirectory,
    MountTable,
    IsSupported,
};
inline constexpr uint32_t kCallKinds = static_cast<uint32_t>(Call::IsSupported) + 1;

const char* NameOf(Call call);

// In force from construction to destruction, which must lie outside of the time in which the library is started, or
// around all of it.
class FaultyPlatform {
  public:
    FaultyPlatform();
    ~FaultyPlatform();
    FaultyPlatform(const FaultyPlatform&) = delete;
    FaultyPlatform& operator=(const FaultyPlatform&) = delete;

    // The `nth` call of a kind from now on (1 is the next one) fails, with `error` where the kind has errors; with
    // `andAfter` all later ones too.
    void Fail(Call call, uint64_t nth, qx::SystemError error = qx::SystemError::Other, bool andAfter = false);

    // The `nth` call of any kind from now on fails, file calls with `error`.
    void FailAny(uint64_t nth, qx::SystemError error = qx::SystemError::Other);

    // A write that fails transfers the first `bytes` bytes before; reads that fail likewise.
    void TransferBeforeFailing(size_t bytes) { partial_ = bytes; }

    // From now on no more than `most` file handles can be open at once: NoHandles beyond.
    void LimitOpenHandles(int64_t most) { openHandlesLimit_ = most; }

    // Runs inside every call that unlocks a byte range, before the range is free.
    std::function<void()> DuringUnlock;

    // From now on the system's table of mounts has these lines at its end.
    void PretendMounts(std::string lines) { mounts_ = std::move(lines); }
    const std::string& PretendedMounts() const { return mounts_; }

    // Orders no further faults and lifts the limit.
    void Clear();

    // Whether a fault was delivered since the last order or Clear.
    bool Delivered() const { return delivered_; }
    Call DeliveredCall() const { return deliveredCall_; }

    // Calls of a kind, and of all kinds, since construction.
    uint64_t Count(Call call) const { return counts_[static_cast<uint32_t>(call)]; }
    uint64_t CountAll() const { return all_; }

    // What is held now.
    struct Holdings {
        std::atomic<int64_t> OpenHandles{0};
        std::atomic<int64_t> LockedBytes{0};
        std::atomic<int64_t> Events{0};
        std::atomic<int64_t> Heaps{0};
        std::atomic<int64_t> HeapBlocks{0};
        std::atomic<int64_t> Buffers{0};  // may fall below zero: threads keep a buffer from call to call
    };
    Holdings Held;

    // For the wrappers: counts a call and says whether, and how, it is to fail.
    qx::SystemError Ask(Call call);
    size_t PartialTransfer() const { return partial_; }
    bool MayOpen() const { return Held.OpenHandles < openHandlesLimit_; }

    const qx::Platform& Real() const { return real_; }

  private:
    struct Order {
        uint64_t At = 0;  // 0: none
        qx::SystemError Error = qx::SystemError::None;
        bool AndAfter = false;
    };

    struct Services;

    static constexpr int64_t kNoLimit = INT64_MAX;

    const qx::Platform real_;
    std::unique_ptr<Services> services_;
    std::mutex mutex_;
    std::array<Order, kCallKinds> orders_{};
    Order any_;
    std::array<std::atomic<uint64_t>, kCallKinds> counts_{};
    std::atomic<uint64_t> all_{0};
    std::string mounts_;
    std::atomic<size_t> partial_{0};
    std::atomic<int64_t> openHandlesLimit_{kNoLimit};
    std::atomic<bool> delivered_{false};
    std::atomic<Call> deliveredCall_{Call::Exists};
};

}  // namespace qx_test
