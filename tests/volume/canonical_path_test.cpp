#include "volume/canonical_path.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "support/process_set_up.h"
#include "support/test_library.h"

namespace qx_test {
namespace {

namespace fs = std::filesystem;

std::string Backslashed(std::string path) {
    std::replace(path.begin(), path.end(), '/', '\\');
    return path;
}

class CanonicalPath : public ProcessSetUp {
  protected:
    CanonicalPath() {
        std::memcpy(qx::theLibrary.ComputerName, "HOST", 4);
        qx::theLibrary.ComputerNameLength = 4;
        fs::create_directories(root_ + "/DATA/Orders");
        fs::create_directory(root_ + "/Both");
        fs::create_directory(root_ + "/BOTH");
        fs::create_directory_symlink("DATA", root_ + "/link");
        fs::create_directory_symlink(root_ + "/link/Orders", root_ + "/DATA/deep");
        fs::create_symlink("nowhere", root_ + "/dangling");
        for (const char* file : {"DATA/Cust.LK", "DATA/Cust.OV", "DATA/a.LK", "DATA/A.LK", "DATA/Orders/X.LK"}) {
            std::ofstream(root_ + '/' + file) << "x";
        }
        fs::current_path(root_);
    }
    ~CanonicalPath() override { fs::current_path(before_); }

    // The canonical path, "" for none; checked for being its own canonical path.
    static std::string Of(std::string_view name) {
        const auto path = qx::MakeCanonicalPath(name);
        if (!path) {
            return "";
        }
        EXPECT_EQ(std::string(path->Volume()) + std::string(path->FileName()), path->Path);
        const auto again = qx::MakeCanonicalPath(path->Path);
        EXPECT_TRUE(again && again->Path == path->Path && again->RootLength == path->RootLength) << path->Path;
        return path->Path;
    }

    std::string InRoot(const std::string& rest) const { return "\\\\HOST" + Backslashed(root_ + '/' + rest); }

    const fs::path before_ = fs::current_path();
    const TestDirectory directory_;
    const std::string root_ = fs::canonical(directory_.Path());
};

TEST_F(CanonicalPath, EverySpellingOfAFileLeadsToOnePath) {
    const std::string base = fs::path(root_).filename();
    const std::string expected = InRoot("DATA/Cust");
    for (const std::string& name : std::initializer_list<std::string>{
             root_ + "/DATA/Cust",
             Backslashed(root_ + "/DATA/Cust"),
             root_ + "\\data/CUST",
             root_ + "//DATA///Cust",
             root_ + "/./DATA/./cust",
             root_ + "/DATA/../DATA/Cust",
             root_ + "/nowhere/../DATA/Cust",
             root_ + "/nowhere/deeper/../../dAtA/cUsT",
             "/.." + root_ + "/DATA/Cust",
             "DATA/Cust",
             "data\\cust",
             "./data//cust",
             "../" + base + "/DATA/CUST",
             "DATA/Orders/../Cust",
             "link/cust",
             "LINK/Cust",
             "link/../DATA/Cust",
             "DATA/deep/../Cust",
             "link/deep/.././Cust",
             "\\\\HOST" + Backslashed(root_ + "/DATA/Cust"),
             "//host" + root_ + "/data/cust",
             "\\/Host\\" + root_ + "/link/./cust",
         }) {
        EXPECT_EQ(Of(name), expected) << name;
    }
    const auto path = qx::MakeCanonicalPath("link/cust");
    EXPECT_EQ(path->RootLength, 7U) << "up to the separator after the computer's name";
    EXPECT_EQ(path->Volume(), InRoot("DATA/"));
    EXPECT_EQ(path->FileName(), "Cust");
    EXPECT_EQ(Of("/x"), "\\\\HOST\\x");
    EXPECT_EQ(Of("/../x"), "\\\\HOST\\x");
    fs::current_path("/");
    EXPECT_EQ(Of("x"), "\\\\HOST\\x");
}

TEST_F(CanonicalPath, WhatDoesNotExistStaysAsWritten) {
    for (const auto& [name, rest] : std::initializer_list<std::pair<std::string, std::string>>{
             {"new", "new"},
             {"data/New", "DATA/New"},
             {"No/Such/data/Cust", "No/Such/data/Cust"},
             {"data/Cust.LK", "DATA/Cust.LK"},      // the file would be Cust.LK.LK
             {"data/Cust.LK/x", "DATA/Cust.LK/x"},  // a file where a directory should be
             {"DATA/A", "DATA/A"},                  // as spelled, although there is another
             {"DATA/a", "DATA/a"},                  //
             {"both/x", "both/x"},                  // two directories, neither as spelled
             {"Both/x", "Both/x"},                  //
             {"link", "link"},                      // a file name is not a directory, even where one has it
             {"data", "data"},                      //
             {"Dangling/x", "dangling/x"},          //
             {"data/orders/x", "DATA/Orders/X"},
             {"data/orders", "DATA/orders"},
         }) {
        EXPECT_EQ(Of(name), InRoot(rest)) << name;
    }
}

TEST_F(CanonicalPath, PathsOnOtherComputers) {
    for (const auto& [name, expected] : std::initializer_list<std::pair<std::string, std::string>>{
             {"\\\\server\\share\\Dir\\File", "\\\\SERVER\\SHARE\\Dir\\File"},
             {"//Server/Share/File", "\\\\SERVER\\SHARE\\File"},
             {"//server/share//a/.././b/../c/File", "\\\\SERVER\\SHARE\\c\\File"},
             {"//server/share/../../File", "\\\\SERVER\\SHARE\\File"},
             {"//hosta/share/File", "\\\\HOSTA\\SHARE\\File"},
         }) {
        EXPECT_EQ(Of(name), expected) << name;
        EXPECT_EQ(qx::MakeCanonicalPath(name)->RootLength, expected.find('\\', expected.find('\\', 2) + 1) + 1) << name;
    }
}

TEST_F(CanonicalPath, MountedDirectoriesAreNamedByTheirServer) {
    fs::create_directories(root_ + "/mnt a/Dir/Sub");
    fs::create_directories(root_ + "/again/Dir/Sub");
    fs::create_directories(root_ + "/part/inner");
    fs::create_directory_symlink(root_ + "/mnt a/Dir", root_ + "/tomount");
    fs::create_directory_symlink(root_ + "/DATA", root_ + "/mnt a/out");
    WriteWholeFile(root_ + "/mnt a/Dir/Cust.LK", "");
    Platform.PretendMounts("1 1 1:1 / " + root_ + "/mnt\\040a rw - cifs //server/share rw\n1 1 1:1 / " + root_ +
                           "/again rw - cifs //SERVER/Share rw\n1 1 1:1 / " + root_ +
                           "/part rw - nfs files:/export/data rw\n1 1 1:1 / " + root_ +
                           "/part/inner rw - ext4 /dev/x rw\n");
    for (const auto& [name, expected] : std::initializer_list<std::pair<std::string, std::string>>{
             {"mnt a/dir/CUST", "\\\\SERVER\\SHARE\\Dir\\Cust"},
             {"MNT A/Cust", "\\\\SERVER\\SHARE\\Cust"},
             {"tomount/cust", "\\\\SERVER\\SHARE\\Dir\\Cust"},
             {"//server/share/dir/cust", "\\\\SERVER\\SHARE\\Dir\\Cust"},
             {"again/dir/other", "\\\\SERVER\\SHARE\\Dir\\other"},
             {"mnt a/../mnt a/Dir/sub/X", "\\\\SERVER\\SHARE\\Dir\\Sub\\X"},
             {"//server/share/../../cust", "\\\\SERVER\\SHARE\\cust"},
             {"//server/share/out/cust", InRoot("DATA/Cust")},
             {"part/Cust", "\\\\FILES\\EXPORT\\data\\Cust"},
             {"//files/export/DATA/Cust", "\\\\FILES\\EXPORT\\data\\Cust"},
             {"//files/export/Cust", "\\\\FILES\\EXPORT\\Cust"},  // not mounted
             {"part/inner/Cust", InRoot("part/inner/Cust")},
         }) {
        EXPECT_EQ(Of(name), expected) << name;
    }
    EXPECT_EQ(qx::MakeCanonicalPath("part/Cust")->RootLength, std::string_view("//FILES/EXPORT/").size());
    Platform.Fail(Call::MountTable, 1);
    EXPECT_EQ(Raised([] { qx::MakeCanonicalPath("DATA/Cust"); }), (Status{1006, 0, 0}));
    Platform.Fail(Call::MountTable, 1, qx::SystemError::NoHandles);
    EXPECT_EQ(Raised([] { qx::MakeCanonicalPath("DATA/Cust"); }), (Status{1029, 1, 0}));
}

TEST_F(CanonicalPath, NamesThatLeadNowhere) {
    fs::create_directory(root_ + "/back\\slash");
    fs::create_directory_symlink("back\\slash", root_ + "/toback");
    for (const std::string& name :
         {std::string(), std::string("."), std::string(".."), std::string("data/"), std::string("data/."),
          std::string("data/.."), std::string("/"), std::string("\\"), std::string("a\0b", 3), std::string("toback/x"),
          std::string("//host/"), std::string("//host/data/"), std::string("//server/share"),
          std::string("//server/share/"), std::string("//server/../x"), std::string("//server/share/.."),
          std::string(300, 'x')}) {
        EXPECT_EQ(Of(name), "") << name;
    }
    for (const char* name : {"//", "\\\\", "//server", "//host", "///x", "///share/dir/x"}) {
        EXPECT_EQ(Raised([&] { qx::MakeCanonicalPath(name); }), (Status{1005, 0, 0})) << name;
    }
    Platform.Fail(Call::CurrentDirectory, 1);
    EXPECT_EQ(Of("DATA/Cust"), "");
    fs::current_path(root_ + "/back\\slash");
    EXPECT_EQ(Of("Cust"), "");
    EXPECT_EQ(Of("../DATA/Cust"), InRoot("DATA/Cust"));
}

TEST_F(CanonicalPath, LongestPath) {
    const size_t prefix = InRoot("").size();
    EXPECT_EQ(Of(std::string(260 - prefix, 'x')).size(), 260U);
    EXPECT_EQ(Of(std::string(261 - prefix, 'x')), "");
    EXPECT_EQ(Of("/" + std::string(253, 'x')).size(), 260U);
    EXPECT_EQ(Of("/" + std::string(254, 'x')), "");
    EXPECT_EQ(Of("//server/share/" + std::string(245, 'x')).size(), 260U);
    EXPECT_EQ(Of("//server/share/" + std::string(246, 'x')), "");
}

}  // namespace
}  // namespace qx_test
