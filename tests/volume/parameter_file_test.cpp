// Which parameter file counts for a volume, and what its settings do to the calls.
#include "volume/parameter_file.h"

#include <filesystem>
#include <functional>

#include "runtime/library_record.h"
#include "support/file_test.h"

namespace qx_test {
namespace {

namespace fs = std::filesystem;
using qx::SystemError;

class ParameterFile : public FileTest {
  protected:
    void Write(const std::string& directory, std::string_view text) const {
        fs::create_directories(Path(directory));
        WriteWholeFile(Path(directory + "/MOXPARAM"), text);
    }

    // A volume's parameters are read once in the life of the library.
    void Restart() {
        StopLibrary();
        StartLibrary();
    }

    qx::VolumeSettings& SettingsOf(const std::string& directory) {
        Create(directory + "/F");
        const uint32_t file = Open(directory + "/F");
        Close(file);
        std::string name = "\\\\" + std::string(qx::theLibrary.Host()) + fs::canonical(Path(directory)).string() + '/';
        std::replace(name.begin(), name.end(), '/', '\\');
        return qx::Volumes().at(name)->Settings;
    }
};

TEST_F(ParameterFile, TheNearestOneCounts) {
    fs::create_directories(Path("a/b/c/d"));
    Write("a", "fillcharacter = 1");
    Write("a/b/c", "FILLCHARACTER=3");
    fs::create_directory(Path("a/b/MOXPARAM"));  // is passed over
    const auto fill = [&](const char* directory) { return SettingsOf(directory).FillCharacter; };
    EXPECT_EQ(fill("a"), 1U);
    EXPECT_EQ(fill("a/b"), 1U);
    EXPECT_EQ(fill("a/b/c"), 3U);
    EXPECT_EQ(fill("a/b/c/d"), 3U);
    EXPECT_EQ(fill("."), 0U) << "with none, nothing is set";
    Write("a/b/c/d", "LOCKS=1");
    EXPECT_EQ(fill("a/b/c/d"), 3U) << "read once";
    Restart();
    EXPECT_EQ(fill("a/b/c/d"), 0U) << "one file counts, not several together";

    // The search ends at the root.
    const std::string volume = "\\\\" + std::string(qx::theLibrary.Host()) + fs::canonical(Path("a/b")).string() + '/';
    std::string name = volume;
    std::replace(name.begin(), name.end(), '/', '\\');
    for (const auto& [root, expected] : {std::pair{name.size() - 2, 1U}, {name.size() - 1, 0U}, {size_t{0}, 1U}}) {
        qx::Parameters parameters;
        qx::ReadParameterFile(name, root, parameters);
        EXPECT_EQ(parameters.Settings.FillCharacter, expected) << root;
    }
}

TEST_F(ParameterFile, OfAMountedShare) {
    Write(".", "FILLCHARACTER=1");
    Write("mnt", "FILLCHARACTER=2");
    fs::create_directories(Path("mnt/dir"));
    fs::create_directories(Path("bare/dir"));
    const std::string root = fs::canonical(Directory.Path());
    Faults.PretendMounts("1 1 1:1 / " + root + "/mnt rw - cifs //srv/data rw\n1 1 1:1 / " + root +
                         "/bare rw - nfs srv:/bare rw\n");
    ASSERT_TRUE(Create("mnt/dir/F"));
    ASSERT_TRUE(Create("bare/dir/F"));
    EXPECT_TRUE(fs::exists(Path("mnt/dir/MOXLOCKS")));
    EXPECT_EQ(qx::Volumes().at("\\\\SRV\\DATA\\dir\\")->Settings.FillCharacter, 2U);
    EXPECT_EQ(qx::Volumes().at("\\\\SRV\\BARE\\dir\\")->Settings.FillCharacter, 0U) << "not from above the share";
    Buffer(kName) = "//srv/data/dir/f";
    uint32_t file = kNone;
    ASSERT_TRUE(Run([&](StatusRecord* status) { return QXOpenFile(Session, kName, nullptr, &file, status); }));
    EXPECT_TRUE(Put(file, "k", "data"));
    ASSERT_TRUE(Close(file));
    EXPECT_EQ(StoredRecords("mnt/dir/F"), (Records{{"k", "data"}}));

    // A share that is not mounted here.
    Buffer(kName) = "//srv/other/F";
    EXPECT_FALSE(Run([&](StatusRecord* status) { return QXOpenFile(Session, kName, nullptr, &file, status); }));
    EXPECT_EQ(LastStatus(), (Status{231, 1, 0}));
    EXPECT_FALSE(Run([&](StatusRecord* status) { return QXCreateFile(Session, kName, nullptr, status); }));
    EXPECT_EQ(LastStatus(), (Status{1020, 0, 0}));
}

TEST_F(ParameterFile, OnlyItsBeginningIsRead) {
    Write("a", std::string(10'000, ' ').replace(6130, 14, "FILLCHARACTER=").replace(6144, 2, "77"));
    EXPECT_EQ(SettingsOf("a").FillCharacter, 0U);
    Write("b", std::string(10'000, ' ').replace(6128, 14, "FILLCHARACTER=").replace(6142, 2, "77"));
    EXPECT_EQ(SettingsOf("b").FillCharacter, 77U);
    Write("c", "");
    EXPECT_EQ(SettingsOf("c").FillCharacter, 0U);
}

TEST_F(ParameterFile, FailuresToReadItFailTheCall) {
    Write("a", "READONLY=YES");
    const struct {
        Call At;
        SystemError Error;
        Status Told;
    } cases[] = {
        {Call::Open, SystemError::NoHandles, {1029, 0, 0}},
        {Call::GetSize, SystemError::Other, {107, 0, 0}},
        {Call::Read, SystemError::Other, {107, 0, 0}},
        {Call::Read, SystemError::EndOfFile, {107, 0, 0}},
    };
    for (const auto& [at, error, told] : cases) {
        Faults.Fail(at, 1, error);
        EXPECT_FALSE(Create("a/F"));
        EXPECT_EQ(LastStatus(), told);
        EXPECT_TRUE(qx::Volumes().empty()) << "the next call is to read it";
    }
    EXPECT_FALSE(Create("a/F"));
    EXPECT_EQ(LastStatus(), (Status{102, 1, 0}));
}

TEST_F(ParameterFile, SettingsTakeEffect) {
    // A file of one record, under the settings, from its creation on.
    const auto make = [&](const char* text) {
        fs::remove_all(Path("v"));
        Write("v", text);
        Restart();
        const uint32_t file = CreateAndOpen("v/F", FixedFile(1, 256));
        Put(file, "k", "data");
        return file;
    };
    const auto flushes = [&](const char* text, const std::function<void(uint32_t)>& work) {
        const uint32_t file = make(text);
        const uint64_t before = Faults.Count(Call::Flush);
        work(file);
        return Faults.Count(Call::Flush) - before;
    };
    const auto rewrite = [&](uint32_t file) { EXPECT_TRUE(Put(file, "k", "DATA")); };
    const auto grow = [&](uint32_t file) { EXPECT_TRUE(Put(file, "l", std::string(1000, 'l')) && Erase(file, "l")); };
    EXPECT_EQ(flushes("", rewrite), 0U);
    EXPECT_EQ(flushes("", grow), 0U);
    EXPECT_EQ(flushes("FLUSHFILESIZEUPDATES=1", rewrite), 0U);
    EXPECT_GT(flushes("FLUSHFILESIZEUPDATES=1", grow), 0U);
    EXPECT_EQ(flushes("FLUSHALLUPDATES=1", rewrite), 1U);

    make("FILLCHARACTER=0x141");
    EXPECT_EQ(ReadHashedFile(Path("v/F")).Primary.back(), 'A');

    const uint32_t limited = make("MAXIMUMRECORDSIZE=5");
    EXPECT_FALSE(Put(limited, "k", "123456"));
    EXPECT_EQ(LastStatus(), (Status{1002, 0, 0}));
    EXPECT_TRUE(Put(limited, "k", "12345"));

    for (const auto& [text, code] : {std::pair{"readonly = yes", 102U}, {"ServerOnly=1", 1019U}}) {
        make("");
        Write("v", text);
        Restart();
        EXPECT_FALSE(Delete("v/F"));
        EXPECT_EQ(LastStatus()[0], code);
        EXPECT_FALSE(Create("v/G"));
        EXPECT_EQ(LastStatus()[0], code);
    }
    EXPECT_EQ(Open("v/F"), kNone);
    EXPECT_EQ(LastStatus(), (Status{1019, 0, 0}));
}

}  // namespace
}  // namespace qx_test
