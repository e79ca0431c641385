#include "platform/directory_service.h"

#include <filesystem>
#include <gtest/gtest.h>

#include "platform/platform.h"
#include "support/test_library.h"

namespace qx_test {
namespace {

namespace fs = std::filesystem;

class DirectoryService : public testing::Test {
  protected:
    static qx::DirectoryService& Directories() { return *qx::thePlatform.Directories; }

    // The stored stem, "" for no answer.
    std::string Find(std::string_view stem, std::string_view extension = ".LK") const {
        std::string stored = "?";
        const bool found = Directories().FindEntry(root_, stem, extension, &stored) == qx::SystemError::None;
        EXPECT_TRUE(found || stored == "?") << "without an answer nothing is stored";
        return found ? stored : "";
    }

    void Make(std::string_view name) const { WriteWholeFile(root_ + '/' + std::string(name), ""); }

    const TestDirectory directory_;
    const std::string root_ = fs::canonical(directory_.Path());
};

TEST_F(DirectoryService, EntriesAreFoundAsSpelledOrInAnyCaseWhenThatIsClear) {
    Make("Cust.LK");
    Make("ONE.LK");
    Make("one.LK");
    Make("two.lk");
    Make("PLAIN");
    Make("\xC3\x84.LK");
    EXPECT_EQ(Find("Cust"), "Cust");
    EXPECT_EQ(Find("CUST"), "Cust");
    EXPECT_EQ(Find("cUsT"), "Cust");
    EXPECT_EQ(Find("cus"), "");
    EXPECT_EQ(Find("Cust.LK"), "");
    EXPECT_EQ(Find("one"), "one") << "as spelled";
    EXPECT_EQ(Find("ONE"), "ONE");
    EXPECT_EQ(Find("One"), "") << "there are two";
    EXPECT_EQ(Find("two"), "") << "the extension is looked up as it is";
    EXPECT_EQ(Find("plain"), "");
    EXPECT_EQ(Find("plain", ""), "PLAIN");
    EXPECT_EQ(Find("\xC3\xA4"), "") << "only letters of ASCII have a case";
    EXPECT_EQ(Find("[ne"), "") << "no character but a letter has one";
    EXPECT_EQ(Find(""), "");
    std::string stored;
    EXPECT_EQ(Directories().FindEntry(root_ + "/no", "Cust", ".LK", &stored), qx::SystemError::NotFound);
    EXPECT_EQ(Directories().FindEntry(root_ + "/Cust.LK", "Cust", ".LK", &stored), qx::SystemError::NotFound);
}

TEST_F(DirectoryService, LinksToDirectoriesAreFollowedToTheirEnd) {
    fs::create_directories(root_ + "/real/deep");
    Make("file");
    fs::create_directory_symlink("real", root_ + "/relative");
    fs::create_directory_symlink(root_ + "/relative/deep", root_ + "/chain");
    fs::create_symlink("file", root_ + "/tofile");
    fs::create_symlink("nowhere", root_ + "/dangling");
    fs::create_symlink("circle", root_ + "/circle");
    const auto resolve = [&](const std::string& name) {
        std::string target = "?";
        return Directories().ResolveDirectoryLink(root_ + '/' + name, &target) ? target : "";
    };
    EXPECT_EQ(resolve("relative"), root_ + "/real");
    EXPECT_EQ(resolve("chain"), root_ + "/real/deep");
    for (const char* name : {"real", "file", "tofile", "dangling", "circle", "missing"}) {
        EXPECT_EQ(resolve(name), "") << name;
    }
}

TEST_F(DirectoryService, CurrentDirectory) {
    const fs::path before = fs::current_path();
    fs::create_directory(root_ + "/real");
    fs::create_directory_symlink("real", root_ + "/link");
    std::string path;
    fs::current_path(root_ + "/link");
    EXPECT_TRUE(Directories().CurrentDirectory(&path));
    EXPECT_EQ(path, root_ + "/real");
    fs::remove(root_ + "/real");
    EXPECT_FALSE(Directories().CurrentDirectory(&path)) << "it was removed";
    fs::current_path(before);
}

}  // namespace
}  // namespace qx_test
