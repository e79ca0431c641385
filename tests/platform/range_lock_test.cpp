#include "platform/range_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "platform/platform.h"
#include "support/fake_time.h"
#include "support/other_process.h"
#include "support/test_library.h"

namespace qx_test {
namespace {

using qx::Access;
using qx::LockMode;
using qx::OsHandle;
using qx::SystemError;

// Where the locks of the volume's lock file lie.
constexpr uint64_t kHigh = 0xFFFFFFFF00000000;

class RangeLock : public testing::Test {
  protected:
    RangeLock() { WriteWholeFile(path_, ""); }

    static qx::FileService& Files() { return *qx::thePlatform.Files; }

    OsHandle Opened(Access access = Access::ReadWrite) const {
        OsHandle handle = qx::kNoOsHandle;
        EXPECT_EQ(Files().Open(path_.c_str(), access, qx::Sharing::None, &handle), SystemError::None);
        return handle;
    }

    const TestDirectory directory_;
    const std::string path_ = directory_.File("LOCKS");
};

TEST_F(RangeLock, HandlesOfOneProcessConflictAsProcessesDo) {
    const OsHandle first = Opened();
    const OsHandle second = Opened();
    const auto tryBoth = [&](OsHandle handle, uint64_t offset, uint32_t length) {
        std::string allowed;
        for (const LockMode mode : {LockMode::Shared, LockMode::Exclusive}) {
            const SystemError result = Files().TryLock(handle, offset, length, mode);
            if (result == SystemError::None) {
                allowed += mode == LockMode::Shared ? 'S' : 'X';
                EXPECT_EQ(Files().Unlock(handle, offset, length), SystemError::None);
            } else {
                EXPECT_EQ(result, SystemError::InUse);
            }
        }
        return allowed;
    };
    EXPECT_EQ(tryBoth(second, kHigh + 10, 5), "SX");
    ASSERT_EQ(Files().TryLock(first, kHigh + 10, 5, LockMode::Shared), SystemError::None);
    EXPECT_EQ(tryBoth(second, kHigh + 14, 1), "S");
    EXPECT_EQ(tryBoth(second, kHigh + 9, 2), "S");
    EXPECT_EQ(tryBoth(second, kHigh + 9, 1), "SX");
    EXPECT_EQ(tryBoth(second, kHigh + 15, 1), "SX");
    EXPECT_EQ(tryBoth(second, 10, 5), "SX") << "the high part of a position counts";

    ASSERT_EQ(Files().TryLock(first, kHigh + 10, 5, LockMode::Exclusive), SystemError::None);
    EXPECT_EQ(tryBoth(second, kHigh + 12, 1), "");
    OtherProcess process([&](OtherProcess::Turn&) {
        const OsHandle own = Opened();
        EXPECT_EQ(tryBoth(own, kHigh + 12, 1), "");
        EXPECT_EQ(tryBoth(own, kHigh + 15, 1), "SX");
    });
    EXPECT_TRUE(process.Finish());
    EXPECT_EQ(tryBoth(second, kHigh + 12, 1), "") << "closing another handle on the file takes no lock away";

    EXPECT_EQ(Files().Unlock(first, kHigh + 10, 2), SystemError::None);
    EXPECT_EQ(tryBoth(second, kHigh + 10, 2), "SX");
    EXPECT_EQ(tryBoth(second, kHigh + 12, 1), "");
    Files().Close(first);
    EXPECT_EQ(tryBoth(second, kHigh + 12, 1), "SX");
    Files().Close(second);
}

// Other programs look for the locks where the system puts them: with the top bit of the position dropped.
TEST_F(RangeLock, PositionsLoseTheirTopBit) {
    const OsHandle holder = Opened();
    const OsHandle looker = Opened();
    for (const uint64_t offset : {kHigh, kHigh + 0x12345678, kHigh + 0xFFFFFFFE, uint64_t{77}}) {
        ASSERT_EQ(Files().TryLock(holder, offset, 1, LockMode::Exclusive), SystemError::None);
        struct flock seen {};
        seen.l_type = F_WRLCK;
        seen.l_whence = SEEK_SET;
        ASSERT_EQ(::fcntl(static_cast<int>(looker), F_OFD_GETLK, &seen), 0);
        EXPECT_EQ(seen.l_type, F_WRLCK);
        EXPECT_EQ(static_cast<uint64_t>(seen.l_start), offset & 0x7FFFFFFFFFFFFFFF);
        EXPECT_EQ(seen.l_len, 1);
        ASSERT_EQ(Files().Unlock(holder, offset, 1), SystemError::None);
    }
    Files().Close(holder);
    Files().Close(looker);
}

TEST_F(RangeLock, TimeLimit) {
    FakeTime time;
    const OsHandle holder = Opened();
    const OsHandle waiter = Opened();
    const auto lock = [&](uint32_t timeout) {
        return qx::LockRangeWithin(waiter, kHigh, 1, LockMode::Exclusive, timeout);
    };
    EXPECT_EQ(lock(5), SystemError::None);
    EXPECT_EQ(time.Sleeps(), 0U);
    ASSERT_EQ(Files().Unlock(waiter, kHigh, 1), SystemError::None);

    ASSERT_EQ(Files().TryLock(holder, kHigh, 1, LockMode::Shared), SystemError::None);
    EXPECT_EQ(lock(0), SystemError::InUse);
    EXPECT_EQ(time.Sleeps(), 0U);

    EXPECT_EQ(lock(5), SystemError::InUse);
    EXPECT_GT(time.Elapsed(), 5000U);
    EXPECT_LE(time.Elapsed(), 5055U);
    EXPECT_GE(time.Sleeps(), 5000 / 55U);

    uint32_t left = 3;
    time.DuringSleep = [&] {
        if (--left == 0) {
            EXPECT_EQ(Files().Unlock(holder, kHigh, 1), SystemError::None);
        }
    };
    EXPECT_EQ(lock(0xFFFFFFFF), SystemError::None);
    EXPECT_EQ(left, 0U);
    Files().Close(waiter);
    Files().Close(holder);
}

TEST_F(RangeLock, AHandleForReadingTakesSharedLocksOnly) {
    FakeTime time;
    const OsHandle reader = Opened(Access::ReadOnly);
    EXPECT_EQ(qx::LockRangeWithin(reader, kHigh, 1, LockMode::Exclusive, 5), SystemError::Other);
    EXPECT_EQ(time.Sleeps(), 0U) << "waiting would not help";
    EXPECT_EQ(qx::LockRangeWithin(reader, kHigh, 1, LockMode::Shared, 5), SystemError::None);
    const OsHandle other = Opened();
    EXPECT_EQ(Files().TryLock(other, kHigh, 1, LockMode::Exclusive), SystemError::InUse);
    Files().Close(other);
    Files().Close(reader);
}

}  // namespace
}  // namespace qx_test
