#include "files/mount_table.h"

#include <gtest/gtest.h>
#include <random>

#include "support/test_seed.h"

namespace qx_test {
namespace {

// Lines in the forms in which the operating system writes them, and others.
constexpr std::string_view kTable =
    "22 27 0:21 / /proc rw,relatime - proc proc rw\n"
    "27 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw\n"
    "40 27 0:40 / /mnt/cifs rw,relatime shared:2 master:3 - cifs //server.corp/Share$ rw,vers=3.0\n"
    "41 27 0:41 / /mnt/smb rw - smb3 //10.0.0.1/data/sub/Dir rw\n"
    "42 27 0:42 /a/b /mnt/bound rw - smb3 //10.0.0.1/data rw\n"
    "43 27 0:43 / /mnt/nfs rw - nfs files:/export/home rw\n"
    "44 27 0:44 / /mnt/v6 rw - nfs4 [fe80::1]:/export rw\n"
    "45 27 0:45 / /mnt/whole rw - nfs4 whole:/ rw\n"
    "46 27 0:46 / /mnt/mine rw - cifs //me/share rw\n"
    "47 27 0:47 / /mnt/with\\040space\\011tab rw - cifs //s/with\\040space rw\n"
    "48 27 0:48 / /mnt/back\\134slash rw - cifs //s/plain rw\n"
    "49 27 0:49 / /mnt/odd rw - nfs s:/a\\134b rw\n"
    "50 27 0:50 / /mnt/under rw - cifs //s/under rw\n"
    "51 27 0:51 / /mnt/under rw - tmpfs //s/over rw\n"
    "52 27 0:52 / /mnt/lower rw - nfs s:/case rw\n"
    "53 27 0:53 / /mnt/upper rw - nfs s:/CASE rw\n"
    "54 27 0:54 / /mnt/one rw - cifs //s/Letters rw\n"
    "55 27 0:55 / /mnt/two rw - cifs //S/LETTERS rw\n"
    "56 40 0:56 / /mnt/cifs/in/disk rw - ext4 /dev/x rw\n"
    "57 27 0:57 / /mnt/none rw - cifs none rw\n"
    "58 27 0:58 / /mnt/empty rw - cifs // rw\n"
    "59 27 0:59 / /mnt/nfsnone rw - nfs : rw\n"
    "60 27\n"
    "\n";

TEST(MountTable, DirectoriesAndTheirNamesOnTheNetwork) {
    const qx::MountTable mounts(kTable, "ME");
    const struct {
        std::string_view Directory;
        std::string_view Name;  // empty: of this computer
        std::string_view Root = {};
    } cases[] = {
        {"", ""},
        {"/home", ""},
        {"/mnt", ""},
        {"/mnt/cifs", "\\\\SERVER.CORP\\SHARE$", "\\\\SERVER.CORP\\SHARE$\\"},
        {"/mnt/cifs/Dir", "\\\\SERVER.CORP\\SHARE$\\Dir", "\\\\SERVER.CORP\\SHARE$\\"},
        {"/mnt/cifsx", ""},
        {"/mnt/cifs/in", "\\\\SERVER.CORP\\SHARE$\\in", "\\\\SERVER.CORP\\SHARE$\\"},
        {"/mnt/cifs/in/disk/x", ""},
        {"/mnt/smb/x", "\\\\10.0.0.1\\DATA\\sub\\Dir\\x", "\\\\10.0.0.1\\DATA\\"},
        {"/mnt/bound/x", "\\\\10.0.0.1\\DATA\\a\\b\\x", "\\\\10.0.0.1\\DATA\\"},
        {"/mnt/nfs/me", "\\\\FILES\\EXPORT\\home\\me", "\\\\FILES\\EXPORT\\"},
        {"/mnt/v6", "\\\\[FE80::1]\\EXPORT", "\\\\[FE80::1]\\EXPORT\\"},
        {"/mnt/whole/x", ""},
        {"/mnt/mine/x", ""},
        {"/mnt/with space\ttab", "\\\\S\\WITH SPACE", "\\\\S\\WITH SPACE\\"},
        {"/mnt/back\\slash", "\\\\S\\PLAIN", "\\\\S\\PLAIN\\"},
        {"/mnt/odd", ""},
        {"/mnt/under/x", ""},
        {"/mnt/lower", "\\\\S\\CASE", "\\\\S\\CASE\\"},
        {"/mnt/upper", ""},
        {"/mnt/one", "\\\\S\\LETTERS", "\\\\S\\LETTERS\\"},
        {"/mnt/two", "\\\\S\\LETTERS", "\\\\S\\LETTERS\\"},
        {"/mnt/none", ""},
        {"/mnt/empty", ""},
        {"/mnt/nfsnone", ""},
    };
    for (const auto& [directory, name, root] : cases) {
        const qx::NetworkMount* mount = mounts.MountOf(directory);
        std::string found =
            mount == nullptr ? "" : mount->Name + std::string(directory.substr(mount->Directory.size()));
        std::replace(found.begin(), found.end(), '/', '\\');
        EXPECT_EQ(found, name) << directory;
        if (mount != nullptr) {
            EXPECT_EQ(mount->RootLength, root.size());
            const std::string file = found + "\\X";
            const std::string expected = (directory == "/mnt/two" ? "/mnt/one" : std::string(directory)) + "/X";
            EXPECT_EQ(mounts.LocalPathOf(file), expected) << "back again";
        }
    }
    const std::pair<std::string_view, std::optional<std::string>> paths[] = {
        {"\\\\10.0.0.1\\DATA\\SUB\\dir\\X", "/mnt/smb/X"},
        {"\\\\10.0.0.1\\DATA\\a\\b\\c\\X", "/mnt/bound/c/X"},
        {"\\\\10.0.0.1\\DATA\\a\\X", std::nullopt},
        {"\\\\10.0.0.1\\DATA\\a\\bX", std::nullopt},
        {"\\\\S\\UNDER\\X", std::nullopt},
        {"\\\\ME\\SHARE\\X", std::nullopt},
        {"\\\\S\\C", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [path, local] : paths) {
        EXPECT_EQ(mounts.LocalPathOf(path), local) << path;
    }
    const qx::MountTable root("1 0 0:1 / / rw - nfs boot:/srv/root rw\n", "ME");
    ASSERT_NE(root.MountOf("/home"), nullptr);
    EXPECT_EQ(root.LocalPathOf("\\\\BOOT\\SRV\\root\\home\\X"), "/home/X");
}

TEST(MountTable, AnyTextIsRead) {
    std::mt19937_64 random(TestSeed());
    for (int i = 0; i < 5000; ++i) {
        std::string text(kTable);
        for (uint64_t changes = random() % 40; changes > 0; --changes) {
            const size_t at = random() % text.size();
            if (random() % 2 == 0) {
                text[at] = " \\/:-[\n0"[random() % 8];
            } else {
                text.erase(at, random() % 20);
            }
        }
        const qx::MountTable mounts(text, "ME");
        for (const char* directory : {"", "/mnt/cifs/x", "/mnt/v6"}) {
            if (const qx::NetworkMount* mount = mounts.MountOf(directory)) {
                ASSERT_LE(mount->RootLength, mount->Name.size() + 1);
                ASSERT_TRUE(mounts.LocalPathOf(mount->Name + "\\X"));
            }
        }
    }
}

}  // namespace
}  // namespace qx_test
