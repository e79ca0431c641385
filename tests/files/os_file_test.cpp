#include "files/os_file.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "support/process_set_up.h"
#include "support/test_library.h"

namespace qx_test {
namespace {

namespace fs = std::filesystem;
using qx::FileResult;
using qx::SystemError;

class OsFile : public ProcessSetUp {
  protected:
    // What the rest of the test takes for this computer's name.
    static void NameHost(std::string_view name) {
        std::memcpy(qx::theLibrary.ComputerName, name.data(), name.size());
        qx::theLibrary.ComputerNameLength = static_cast<uint32_t>(name.size());
    }
};

TEST_F(OsFile, LocalNames) {
    NameHost("HOST");
    const TestDirectory directory;
    fs::create_directory(directory.File("data"));
    WriteWholeFile(directory.File("data/CUST.LK"), "");
    fs::current_path(directory.Path());
    std::string path = fs::canonical(directory.Path()).string();
    Platform.PretendMounts("1 1 1:1 / " + path + " rw - cifs //server/share rw\n");
    const auto exists = [](const std::string& name) {
        std::string backslashed = name;
        std::replace(backslashed.begin(), backslashed.end(), '/', '\\');
        return qx::OsFileExists(backslashed);
    };
    EXPECT_EQ(exists("//HOST" + path + "/data/CUST.LK"), FileResult::Done);
    EXPECT_EQ(exists("//SERVER/SHARE/data/CUST.LK"), FileResult::Done);
    for (const std::string& elsewhere :
         {"//HOSTA" + path + "/data/CUST.LK", "//HOS/T" + path + "/data/CUST.LK", "//host" + path + "/data/CUST.LK",
          "/HOST" + path + "/data/CUST.LK", path + "/data/CUST.LK", std::string("data/CUST.LK"), std::string("//HOST"),
          std::string("//SERVER/SHARED/data/CUST.LK"), std::string("//SERVER/data/CUST.LK"), std::string("//"),
          std::string()}) {
        EXPECT_EQ(exists(elsewhere), FileResult::Failed) << elsewhere;
    }
    Platform.Fail(Call::MountTable, 1, SystemError::NoHandles);
    EXPECT_EQ(exists("//SERVER/SHARE/data/CUST.LK"), FileResult::Exhausted);
    fs::current_path("/");
}

TEST_F(OsFile, TransfersAreByUnitAndTellTheEndFromAFailure) {
    const TestDirectory directory;
    qx::OsHandle file = qx::kNoOsHandle;
    ASSERT_EQ(Platform.Real().Files->Create(directory.File("x").c_str(), qx::Sharing::None, &file), SystemError::None);
    std::string bytes(10'240, 'b');
    EXPECT_EQ(qx::OsWrite(file, 1024, 0, 0, bytes.data(), 10'240), FileResult::Done);
    EXPECT_EQ(qx::OsWrite(file, 1024, 3, 20, "here", 4), FileResult::Done);
    char read[4];
    EXPECT_EQ(qx::OsRead(file, 1546, 2, read, 4), FileResult::Done);
    EXPECT_EQ(std::string_view(read, 4), "here");
    for (const auto& [unit, expected] : {std::pair{1024U, 10U}, {1000U, 10U}, {10'240U, 1U}, {10'241U, 0U}}) {
        uint32_t count = 99;
        EXPECT_TRUE(qx::OsGetSize(file, unit, &count));
        EXPECT_EQ(count, expected) << unit;
    }
    EXPECT_EQ(qx::OsRead(file, 1024, 10, read, 1), FileResult::Exhausted);
    EXPECT_EQ(qx::OsRead(file, 1, 10'238, read, 4), FileResult::Exhausted) << "short";
    EXPECT_EQ(qx::OsRead(file, 0xFFFFFFFF, 0xFFFFFFFF, read, 1), FileResult::Exhausted);
    EXPECT_EQ(qx::OsWrite(file, 0xFFFFFFFF, 0xFFFFFFFF, 0, read, 1), FileResult::Exhausted);
    EXPECT_TRUE(qx::OsSetSize(file, 1U << 31, 4)) << "positions are of 64 bits";
    EXPECT_EQ(qx::OsRead(file, 1U << 31, 3, read, 4), FileResult::Done);

    struct Row {
        SystemError Error;
        FileResult Read;
        FileResult Write;
    };
    for (const Row& row : {Row{SystemError::EndOfFile, FileResult::Exhausted, FileResult::Failed},
                           Row{SystemError::VolumeFull, FileResult::Failed, FileResult::Exhausted},
                           Row{SystemError::Other, FileResult::Failed, FileResult::Failed}}) {
        Platform.Fail(Call::Read, 1, row.Error);
        EXPECT_EQ(qx::OsRead(file, 1, 0, read, 4), row.Read);
        Platform.Fail(Call::Write, 1, row.Error);
        EXPECT_EQ(qx::OsWrite(file, 1, 0, 0, read, 4), row.Write);
    }
    for (const Call call : {Call::GetSize, Call::SetSize, Call::Flush}) {
        Platform.Fail(call, 1);
    }
    uint32_t count = 0;
    EXPECT_FALSE(qx::OsGetSize(file, 1, &count));
    EXPECT_FALSE(qx::OsSetSize(file, 1, 1));
    EXPECT_FALSE(qx::OsFlush(file));
    EXPECT_TRUE(qx::OsFlush(file));
    Platform.Real().Files->Close(file);
}

}  // namespace
}  // namespace qx_test
