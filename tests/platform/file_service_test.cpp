#include "platform/file_service.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "platform/platform.h"
#include "support/held_ranges.h"
#include "support/other_process.h"
#include "support/test_library.h"

namespace qx_test {
namespace {

using qx::Access;
using qx::OsHandle;
using qx::Sharing;
using qx::SystemError;

constexpr Sharing kSharings[] = {Sharing::None, Sharing::Shared, Sharing::Exclusive};

bool GetAlong(Sharing a, Sharing b) {
    return a == Sharing::None || b == Sharing::None || (a == Sharing::Shared && b == Sharing::Shared);
}

std::string Name(Sharing sharing) {
    return sharing == Sharing::None ? "none" : sharing == Sharing::Shared ? "shared" : "exclusive";
}

class FileService : public testing::Test {
  protected:
    static qx::FileService& Files() { return *qx::thePlatform.Files; }

    OsHandle Created(Sharing sharing = Sharing::Shared) const {
        OsHandle handle = qx::kNoOsHandle;
        EXPECT_EQ(Files().Create(path_.c_str(), sharing, &handle), SystemError::None);
        return handle;
    }

    SystemError Open(Sharing sharing, OsHandle* handle, Access access = Access::ReadWrite) const {
        return Files().Open(path_.c_str(), access, sharing, handle);
    }

    // Opens and closes.
    SystemError Opening(Sharing sharing) const {
        OsHandle handle = qx::kNoOsHandle;
        const SystemError error = Open(sharing, &handle);
        if (error == SystemError::None) {
            Files().Close(handle);
        }
        return error;
    }

    SystemError Claiming() const {
        OsHandle claim = qx::kNoOsHandle;
        const SystemError error = Files().ClaimForDelete(path_.c_str(), &claim);
        if (error == SystemError::None) {
            Files().Close(claim);
        }
        return error;
    }

    const TestDirectory directory_;
    const std::string path_ = directory_.File("A.LK");
};

TEST_F(FileService, TransfersAreAtPositionsAndWhole) {
    const OsHandle file = Created();
    std::string bytes(10'000, 'x');
    EXPECT_EQ(Files().Write(file, 5000, bytes.data(), bytes.size()), SystemError::None);
    uint64_t size = 0;
    EXPECT_EQ(Files().GetSize(file, &size), SystemError::None);
    EXPECT_EQ(size, 15'000U);

    std::string read(15'000, '?');
    EXPECT_EQ(Files().Read(file, 0, read.data(), read.size()), SystemError::None);
    EXPECT_EQ(read, std::string(5000, '\0') + bytes);
    for (const uint64_t offset : {uint64_t{14'999}, uint64_t{15'000}, uint64_t{1} << 40, uint64_t{1} << 63}) {
        EXPECT_EQ(Files().Read(file, offset, read.data(), 2), SystemError::EndOfFile) << offset;
        EXPECT_EQ(Files().Read(file, offset, read.data(), 0),
                  offset >> 63 ? SystemError::EndOfFile : SystemError::None);
    }

    EXPECT_EQ(Files().SetSize(file, 5001), SystemError::None);
    EXPECT_EQ(Files().SetSize(file, uint64_t{1} << 33), SystemError::None);
    EXPECT_EQ(Files().GetSize(file, &size), SystemError::None);
    EXPECT_EQ(size, uint64_t{1} << 33);
    EXPECT_EQ(Files().Read(file, (uint64_t{1} << 33) - 2, read.data(), 2), SystemError::None);
    EXPECT_EQ(read.substr(0, 2), std::string(2, '\0'));
    EXPECT_EQ(Files().Flush(file), SystemError::None);

    EXPECT_EQ(Files().Write(file, uint64_t{1} << 63, bytes.data(), 1), SystemError::VolumeFull);
    EXPECT_EQ(Files().SetSize(file, uint64_t{1} << 63), SystemError::VolumeFull);
    Files().Close(file);
}

TEST_F(FileService, AWriteThatTheSystemCutsShortIsContinuedAndThenFull) {
    OtherProcess process([this](OtherProcess::Turn&) {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{4096, RLIM_INFINITY};
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
        const OsHandle file = Created();
        const std::string bytes(6000, 'y');
        EXPECT_EQ(Files().Write(file, 0, bytes.data(), bytes.size()), SystemError::VolumeFull);
        EXPECT_EQ(Files().SetSize(file, 4097), SystemError::VolumeFull);
    });
    EXPECT_TRUE(process.Finish());
    EXPECT_EQ(ReadWholeFile(path_), std::string(4096, 'y'));
}

TEST_F(FileService, NamesThatCannotBeOpened) {
    Files().Close(Created());
    OsHandle handle = qx::kNoOsHandle;
    EXPECT_EQ(Files().Create(path_.c_str(), Sharing::Shared, &handle), SystemError::AlreadyExists);
    EXPECT_EQ(Files().Exists(path_.c_str()), SystemError::None);
    for (const std::string& missing :
         {directory_.File("B.LK"), path_ + "/B.LK", directory_.File("no/B.LK"), std::string()}) {
        EXPECT_EQ(Files().Exists(missing.c_str()), SystemError::NotFound) << missing;
        EXPECT_EQ(Files().Open(missing.c_str(), Access::ReadOnly, Sharing::Shared, &handle), SystemError::NotFound);
        EXPECT_EQ(Files().ClaimForDelete(missing.c_str(), &handle), SystemError::NotFound);
    }
    EXPECT_EQ(Files().Exists(directory_.Path().c_str()), SystemError::NotFound);
    EXPECT_EQ(Files().Open(directory_.Path().c_str(), Access::ReadOnly, Sharing::Shared, &handle), SystemError::Other);

    const std::string fifo = directory_.File("FIFO.LK");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0666), 0);
    EXPECT_EQ(Files().Open(fifo.c_str(), Access::ReadOnly, Sharing::Shared, &handle), SystemError::Other);
    EXPECT_EQ(Files().ClaimForDelete(fifo.c_str(), &handle), SystemError::Other);
    EXPECT_EQ(handle, qx::kNoOsHandle);
}

TEST_F(FileService, NoDescriptorToSpare) {
    Files().Close(Created());
    EXPECT_EQ(Claiming(), SystemError::None);
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const int next = ::dup(0);
    ASSERT_GE(next, 0);
    ::close(next);
    const rlimit limit{static_cast<rlim_t>(next), before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    OsHandle handle = qx::kNoOsHandle;
    const SystemError opened = Open(Sharing::Shared, &handle);
    const SystemError created = Files().Create(directory_.File("B.LK").c_str(), Sharing::Shared, &handle);
    const SystemError claimed = Files().ClaimForDelete(path_.c_str(), &handle);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_THAT((std::array{opened, created, claimed}), testing::Each(SystemError::NoHandles));
    EXPECT_EQ(Files().Exists(directory_.File("B.LK").c_str()), SystemError::NotFound);
}

TEST_F(FileService, SharingModesWithinTheProcess) {
    Files().Close(Created());
    for (const Sharing held : kSharings) {
        OsHandle handle = qx::kNoOsHandle;
        ASSERT_EQ(Open(held, &handle), SystemError::None);
        for (const Sharing wanted : kSharings) {
            EXPECT_EQ(Opening(wanted), GetAlong(held, wanted) ? SystemError::None : SystemError::InUse)
                << Name(held) << " held, " << Name(wanted) << " wanted";
        }
        EXPECT_EQ(Claiming(), held == Sharing::None ? SystemError::None : SystemError::InUse) << Name(held);
        Files().Close(handle);
        EXPECT_EQ(Opening(Sharing::Exclusive), SystemError::None) << Name(held);
    }
    OsHandle reader = qx::kNoOsHandle;
    ASSERT_EQ(Open(Sharing::Shared, &reader, Access::ReadOnly), SystemError::None);
    EXPECT_EQ(Opening(Sharing::Shared), SystemError::None);
    EXPECT_EQ(Claiming(), SystemError::InUse);
    Files().Close(reader);
}

TEST_F(FileService, SharingModesBetweenProcesses) {
    Files().Close(Created());
    OtherProcess process([this](OtherProcess::Turn& turn) {
        for (const Sharing held : kSharings) {
            OsHandle handle = qx::kNoOsHandle;
            EXPECT_EQ(Open(held, &handle), SystemError::None);
            turn.HandOver();
            Files().Close(handle);
        }
        OsHandle claim = qx::kNoOsHandle;
        EXPECT_EQ(Files().ClaimForDelete(path_.c_str(), &claim), SystemError::None);
        turn.HandOver();
    });
    for (const Sharing held : kSharings) {
        for (const Sharing wanted : kSharings) {
            EXPECT_EQ(Opening(wanted), GetAlong(held, wanted) ? SystemError::None : SystemError::InUse)
                << Name(held) << " held, " << Name(wanted) << " wanted";
        }
        EXPECT_EQ(Claiming(), held == Sharing::None ? SystemError::None : SystemError::InUse) << Name(held);
        EXPECT_TRUE(process.Continue());
    }
    EXPECT_EQ(Opening(Sharing::Shared), SystemError::InUse) << "claimed by the other process";
    EXPECT_EQ(Claiming(), SystemError::InUse);
    process.Kill();
    EXPECT_EQ(Opening(Sharing::Exclusive), SystemError::None) << "what a process held ends with it";
}

TEST_F(FileService, AClaimedFileIsRemovedOrReleased) {
    Files().Close(Created());
    OsHandle claim = qx::kNoOsHandle;
    ASSERT_EQ(Files().ClaimForDelete(path_.c_str(), &claim), SystemError::None);
    EXPECT_EQ(Opening(Sharing::Shared), SystemError::InUse);
    Files().Close(claim);
    EXPECT_EQ(Opening(Sharing::Shared), SystemError::None);

    ASSERT_EQ(Files().ClaimForDelete(path_.c_str(), &claim), SystemError::None);
    EXPECT_EQ(Files().DeleteClaimed(path_.c_str(), claim), SystemError::None);
    EXPECT_EQ(Opening(Sharing::Shared), SystemError::NotFound);
    EXPECT_EQ(::fcntl(static_cast<int>(claim), F_GETFD), -1) << "a claim ends with the file";
}

// Such as a process has that was forked off a moment ago.
TEST_F(FileService, ACopyOfADescriptorKeepsNoLock) {
    const OsHandle handle = Created();
    ASSERT_EQ(Files().TryLock(handle, 7, 1, qx::LockMode::Exclusive), SystemError::None);
    const int copy = ::dup(static_cast<int>(handle));
    Files().Close(handle);
    EXPECT_EQ(Claiming(), SystemError::None);
    EXPECT_EQ(HeldRanges(path_), std::vector<Range>{});
    ::close(copy);
}

TEST_F(FileService, DescriptorsDoNotReachOtherPrograms) {
    const OsHandle created = Created();
    OsHandle opened = qx::kNoOsHandle;
    ASSERT_EQ(Open(Sharing::Shared, &opened), SystemError::None);
    for (const OsHandle handle : {created, opened}) {
        EXPECT_NE(::fcntl(static_cast<int>(handle), F_GETFD) & FD_CLOEXEC, 0);
        Files().Close(handle);
    }
}

TEST_F(FileService, ReadOnlyHandlesReadAndChangeNothing) {
    const OsHandle writer = Created();
    ASSERT_EQ(Files().Write(writer, 0, "abc", 3), SystemError::None);
    OsHandle reader = qx::kNoOsHandle;
    ASSERT_EQ(Open(Sharing::Shared, &reader, Access::ReadOnly), SystemError::None);
    char bytes[3] = {};
    EXPECT_EQ(Files().Read(reader, 0, bytes, 3), SystemError::None);
    EXPECT_EQ(std::string_view(bytes, 3), "abc");
    EXPECT_EQ(Files().Write(reader, 0, "x", 1), SystemError::Other);
    EXPECT_EQ(Files().SetSize(reader, 0), SystemError::Other);
    EXPECT_EQ(ReadWholeFile(path_), "abc");
    Files().Close(reader);
    Files().Close(writer);
}

class ConcurrentFileService : public FileService {};

// A file may be removed just while it is being opened: whoever then holds it would write into nowhere.
TEST_F(ConcurrentFileService, NobodyHoldsAFileThatHasNoName) {
    std::atomic<bool> done{false};
    std::thread remover([&] {
        for (int i = 0; i < 5000; ++i) {
            OsHandle handle = qx::kNoOsHandle;
            if (Files().Create(path_.c_str(), Sharing::None, &handle) == SystemError::None) {
                Files().Close(handle);
            }
            if (Files().ClaimForDelete(path_.c_str(), &handle) == SystemError::None) {
                EXPECT_EQ(Files().DeleteClaimed(path_.c_str(), handle), SystemError::None);
            }
        }
        done = true;
    });
    uint32_t opened = 0;
    uint32_t nameless = 0;
    while (!done) {
        OsHandle handle = qx::kNoOsHandle;
        const SystemError error = Open(Sharing::Shared, &handle);
        if (error == SystemError::None) {
            struct stat status {};
            EXPECT_EQ(::fstat(static_cast<int>(handle), &status), 0);
            nameless += status.st_nlink == 0;
            ++opened;
            Files().Close(handle);
        } else {
            EXPECT_TRUE(error == SystemError::NotFound || error == SystemError::InUse);
        }
    }
    remover.join();
    EXPECT_EQ(nameless, 0U) << "of " << opened << " opened";
}

}  // namespace
}  // namespace qx_test
