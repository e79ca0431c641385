#include "platform/range_lock.h"

#include "platform/platform.h"

namespace qx {

namespace {
constexpr uint32_t kRetryMilliseconds = 55;
}

SystemError LockRangeWithin(OsHandle handle, uint64_t offset, uint32_t length, LockMode mode, uint32_t timeoutSeconds) {
    SystemError result = thePlatform.Files->TryLock(handle, offset, length, mode);
    if (result != SystemError::InUse || timeoutSeconds == 0) {
        return result;
    }
    const uint64_t start = thePlatform.Clock->MonotonicMilliseconds();
    const uint64_t limit = uint64_t{timeoutSeconds} * 1000;
    while (result == SystemError::InUse && thePlatform.Clock->MonotonicMilliseconds() - start <= limit) {
        thePlatform.Threads->Sleep(kRetryMilliseconds);
        result = thePlatform.Files->TryLock(handle, offset, length, mode);
    }
    return result;
}

}  // namespace qx
