#include "volume/volume_record.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>

#include "runtime/library_record.h"
#include "support/test_library.h"

namespace qx_test {
namespace {

class VolumeRecord : public testing::Test {
  protected:
    VolumeRecord() {
        ApiVersionRecord version{sizeof version, 1, 1, 1};
        EXPECT_EQ(QXInitialize(&version, nullptr), 1);
        for (uint32_t& session : sessions_) {
            EXPECT_EQ(QXOpenSession(TestCallback, nullptr, &session, nullptr), 1);
        }
    }
    ~VolumeRecord() override {
        EXPECT_EQ(QXTerminate(nullptr), 1);
        EXPECT_TRUE(qx::Volumes().empty());
    }

    uint32_t Open(uint32_t session, const std::string& path) {
        Buffer(0) = path;
        QXCreateFile(sessions_[session], 0, nullptr, nullptr);
        uint32_t file = qx::kNoHandle;
        EXPECT_EQ(QXOpenFile(sessions_[session], 0, nullptr, &file, nullptr), 1) << path;
        return file;
    }

    // The handles of the sessions that use the directory's volume, newest use first; "none" without a volume record.
    std::string Uses(const TestDirectory& directory) const {
        std::string path = "\\\\" + std::string(qx::theLibrary.Host());
        path += std::filesystem::canonical(directory.Path()).string() + '/';
        std::replace(path.begin(), path.end(), '/', '\\');
        const auto found = qx::Volumes().find(path);
        if (found == qx::Volumes().end()) {
            return "none";
        }
        std::string uses;
        for (const qx::VolumeUse* use = found->second->Uses; use != nullptr; use = use->NextOfVolume) {
            uses += std::to_string(use->Session);
            EXPECT_EQ(use->Volume, found->second);
            EXPECT_FALSE(use->Files.IsEmpty());
        }
        return uses;
    }

    std::array<uint32_t, 2> sessions_{};
};

TEST_F(VolumeRecord, ASessionUsesAVolumeWhileItHasFilesThere) {
    const TestDirectory a;
    const TestDirectory b;
    EXPECT_EQ(Uses(a), "none");
    const uint32_t first = Open(0, a.File("one"));
    const uint32_t second = Open(0, a.File("two"));
    const uint32_t again = Open(0, a.File("one"));
    EXPECT_EQ(Uses(a), "0");
    const uint32_t other = Open(1, a.File("one"));
    EXPECT_EQ(Uses(a), "10");
    const uint32_t elsewhere = Open(0, b.File("one"));
    EXPECT_EQ(Uses(b), "0");
    EXPECT_EQ(QXCloseFile(first, nullptr), 1);
    EXPECT_EQ(QXCloseFile(second, nullptr), 1);
    EXPECT_EQ(Uses(a), "10");
    EXPECT_EQ(QXCloseFile(again, nullptr), 1);
    EXPECT_EQ(Uses(a), "1");
    EXPECT_EQ(Uses(b), "0");
    EXPECT_EQ(QXCloseFile(other, nullptr), 1);
    EXPECT_EQ(Uses(a), "") << "the volume stays, unused";
    EXPECT_EQ(QXCloseFile(elsewhere, nullptr), 1);
    Open(1, a.File("one"));
    EXPECT_EQ(Uses(a), "1");
    EXPECT_EQ(QXCloseSession(sessions_[1], nullptr), 1);
    EXPECT_EQ(Uses(a), "");
}

TEST_F(VolumeRecord, FailedCallsUseNoVolume) {
    const TestDirectory a;
    Buffer(0) = a.File("missing");
    uint32_t file = 0;
    StatusRecord status{};
    EXPECT_EQ(QXOpenFile(sessions_[0], 0, nullptr, &file, &status), 0);
    EXPECT_EQ(status.Code, 231U);
    EXPECT_EQ(QXDeleteFile(sessions_[0], 0, &status), 0);
    EXPECT_TRUE(qx::Volumes().empty());
    EXPECT_EQ(QXCreateFile(sessions_[0], 0, nullptr, &status), 1);
    EXPECT_EQ(Uses(a), "") << "creating keeps nothing open";
    EXPECT_EQ(QXCreateFile(sessions_[0], 0, nullptr, &status), 0);
    EXPECT_EQ(status.Code, 230U);
    EXPECT_EQ(Uses(a), "");
}

}  // namespace
}  // namespace qx_test
