#include "platform/range_lock.h"

#include <algorithm>

#include "platform/platform.h"

namespace qx {

namespace {
constexpr uint32_t kLongestSleep = 55;  // milliseconds
constexpr int kAttemptsInARow = 64;
}  // namespace

// Most locks are held for microseconds, so a few attempts in a row nearly always meet a moment in which nobody holds
// the range, even while somebody takes it again and again; a sleeper alone would hardly ever. Whoever holds it for
// longer is left in peace for longer and longer.
SystemError LockRangeWithin(OsHandle handle, uint64_t offset, uint32_t length, LockMode mode, uint32_t timeoutSeconds) {
    SystemError result = thePlatform.Files->TryLock(handle, offset, length, mode);
    if (result != SystemError::InUse || timeoutSeconds == 0) {
        return result;
    }
    const uint64_t start = thePlatform.Clock->MonotonicMilliseconds();
    const uint64_t limit = uint64_t{timeoutSeconds} * 1000;
    for (uint32_t sleep = 1;; sleep = std::min(2 * sleep, kLongestSleep)) {
        for (int attempt = 0; attempt < kAttemptsInARow; ++attempt) {
            thePlatform.Threads->Yield();
            result = thePlatform.Files->TryLock(handle, offset, length, mode);
            if (result != SystemError::InUse) {
                return result;
            }
        }
        if (thePlatform.Clock->MonotonicMilliseconds() - start > limit) {
            return result;
        }
        thePlatform.Threads->Sleep(sleep);
    }
}

}  // namespace qx
