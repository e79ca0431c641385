#include "files/file_cache.h"

#include <array>
#include <deque>

#include "support/process_set_up.h"
#include "support/test_library.h"

namespace qx_test {
namespace {

using qx::Access;
using qx::CachedFile;
using qx::FileResult;
using qx::Sharing;
using qx::SystemError;

class FileCache : public ProcessSetUp {
  protected:
    ~FileCache() override {
        while (qx::CloseOneIdleFile()) {
        }
        EXPECT_EQ(qx::theProcessCounters.Value(qx::Counter::ActiveFileHandles), 0U);
    }

    std::string NameOfFile(const std::string& name) const {
        std::string path = directory_.File(name);
        std::replace(path.begin(), path.end(), '/', '\\');
        return "\\\\" + std::string(qx::theLibrary.Host()) + path;
    }

    CachedFile& Created(const std::string& name) {
        CachedFile& entry = entries_.emplace_back();
        EXPECT_EQ(qx::CacheCreateFile(NameOfFile(name), Sharing::Shared, entry), FileResult::Done);
        return entry;
    }

    std::array<CachedFile*, 4> FourIdle() {
        std::array<CachedFile*, 4> files{};
        for (size_t i = 0; i < files.size(); ++i) {
            files[i] = &Created(std::to_string(i));
            qx::LetCloseWhenIdle(*files[i]);
        }
        return files;
    }

    // Which of the files are open, as digits.
    static std::string Open(const std::array<CachedFile*, 4>& files) {
        std::string open;
        for (size_t i = 0; i < files.size(); ++i) {
            if (files[i]->IsOpen()) {
                open += static_cast<char>('0' + i);
            }
        }
        return open;
    }

    const TestDirectory directory_;
    std::deque<CachedFile> entries_;
};

TEST_F(FileCache, TheFileThatHasBeenIdleLongestIsClosedFirst) {
    const auto files = FourIdle();
    EXPECT_TRUE(qx::CloseOneIdleFile());
    EXPECT_EQ(Open(files), "123");
    files[1]->Admit();  // used, and idle again
    files[1]->Leave();
    EXPECT_TRUE(qx::CloseOneIdleFile());
    EXPECT_EQ(Open(files), "13");
    ASSERT_TRUE(files[1]->Join());
    EXPECT_TRUE(qx::CloseOneIdleFile());
    EXPECT_EQ(Open(files), "1") << "a file in use is not closed";
    EXPECT_FALSE(qx::CloseOneIdleFile());
    EXPECT_FALSE(files[1]->Shut());
    EXPECT_EQ(qx::theProcessCounters.Value(qx::Counter::ActiveFileHandles), 1U);
    files[1]->Leave();
    EXPECT_TRUE(files[1]->Shut());
    EXPECT_FALSE(files[1]->Join());
    qx::CloseShared(*files[1]);
    EXPECT_EQ(Platform.Held.OpenHandles, 0);
}

TEST_F(FileCache, AFileWhoseMutexIsOwnedIsSkipped) {
    const auto files = FourIdle();
    qx::ClaimMutex::Node first;
    qx::ClaimMutex::Node third;
    ASSERT_TRUE(files[0]->Mutex.Claim(first));
    ASSERT_TRUE(files[2]->Mutex.Claim(third));
    EXPECT_TRUE(qx::CloseOneIdleFile());
    EXPECT_EQ(Open(files), "023");
    EXPECT_TRUE(qx::CloseOneIdleFile());
    EXPECT_EQ(Open(files), "02");
    EXPECT_FALSE(qx::CloseOneIdleFile());
    files[0]->Mutex.Release(first);
    EXPECT_TRUE(qx::CloseOneIdleFile());
    EXPECT_EQ(Open(files), "2");
    files[2]->Mutex.Release(third);
    EXPECT_TRUE(files[1]->Mutex.TryClaim(first)) << "a closed file's mutex is free";
    files[1]->Mutex.Release(first);
}

TEST_F(FileCache, IdleFilesMakeRoomWhenTheProcessRunsOutOfDescriptors) {
    const auto files = FourIdle();
    Platform.LimitOpenHandles(4);
    std::array<CachedFile, 3> more;
    EXPECT_EQ(qx::CacheCreateFile(NameOfFile("new"), Sharing::Shared, more[0]), FileResult::Done);
    EXPECT_EQ(Open(files), "123");
    EXPECT_EQ(qx::CacheOpenFile(NameOfFile("2"), Access::ReadOnly, Sharing::Shared, more[1]), FileResult::Done);
    EXPECT_EQ(Open(files), "23");
    qx::OsHandle claim = qx::kNoOsHandle;
    EXPECT_EQ(qx::CacheClaimForDelete(NameOfFile("0"), &claim), FileResult::Done);
    EXPECT_EQ(Open(files), "3");
    files[3]->AddUser();
    EXPECT_EQ(qx::CacheOpenFile(NameOfFile("1"), Access::ReadOnly, Sharing::Shared, more[2]), FileResult::Exhausted)
        << "nothing is idle";
    EXPECT_FALSE(more[2].IsOpen());
    EXPECT_EQ(qx::theProcessCounters.Value(qx::Counter::ActiveFileHandles), 3U) << "a claim is not one of them";
    EXPECT_EQ(qx::OsDeleteClaimed(NameOfFile("0"), claim), FileResult::Done);
    files[3]->Leave();
    for (CachedFile* file : {&more[0], &more[1]}) {
        qx::CacheCloseFile(*file);
    }
}

TEST_F(FileCache, EveryOperationOnNamesTriesAgainOnlyAsLongAsSomethingIsIdle) {
    const auto operations = {
        std::pair{Call::Exists, +[](const std::string& name, CachedFile&) { return qx::CacheFileExists(name); }},
        std::pair{Call::Create, +[](const std::string& name,
                                    CachedFile& entry) { return qx::CacheCreateFile(name, Sharing::None, entry); }},
        std::pair{Call::Open,
                  +[](const std::string& name, CachedFile& entry) {
                      return qx::CacheOpenFile(name, Access::ReadWrite, Sharing::None, entry);
                  }},
        std::pair{Call::ClaimForDelete,
                  +[](const std::string& name, CachedFile&) { return qx::CacheDeleteFile(name); }},
    };
    int number = 0;
    for (const auto& [call, operation] : operations) {
        for (int idle = 0; idle < 2; ++idle) {
            qx::LetCloseWhenIdle(Created("idle" + std::to_string(++number)));
        }
        CachedFile entry;
        entry.Handle = 77;
        const uint64_t before = Platform.Count(call);
        Platform.Fail(call, 1, SystemError::NoHandles, true);
        EXPECT_EQ(operation(NameOfFile("x"), entry), FileResult::Exhausted) << NameOf(call);
        EXPECT_EQ(Platform.Count(call) - before, 3U) << NameOf(call);
        EXPECT_EQ(Platform.Held.OpenHandles, 0) << NameOf(call);
        EXPECT_EQ(entry.IsOpen(), call != Call::Create && call != Call::Open) << NameOf(call);

        Platform.Clear();
        qx::LetCloseWhenIdle(Created("idle" + std::to_string(++number)));
        Platform.Fail(call, 1, SystemError::Other, true);
        EXPECT_EQ(operation(NameOfFile("x"), entry), FileResult::Failed) << NameOf(call);
        EXPECT_EQ(Platform.Held.OpenHandles, 1) << "any other failure closes nothing: " << NameOf(call);
        Platform.Clear();
        EXPECT_TRUE(qx::CloseOneIdleFile());
    }
}

}  // namespace
}  // namespace qx_test
