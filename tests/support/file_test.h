// Ground for tests that work on hashed files through the exported functions: the library started over a platform that
// can be made to fail, a session, a directory, and short forms of the calls.
#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <ostream>
#include <qx.h>
#include <string>
#include <string_view>
#include <vector>

#include "checker/byte_checker.h"
#include "storage/file_handle.h"
#include "storage/open_file.h"
#include "support/faulty_platform.h"
#include "support/raised.h"
#include "support/test_library.h"

namespace qx_test {

inline constexpr uint32_t kNone = 0xFFFFFFFF;

// The buffer objects that the short forms use.
inline constexpr uint32_t kName = 0;
inline constexpr uint32_t kKey = 1;
inline constexpr uint32_t kData = 2;

// A file that keeps its number of groups, so that its bytes follow from the test's calls alone.
CreateOptions FixedFile(uint32_t modulo = 1, uint32_t frameSize = 1024, uint32_t version = 120);

using Records = std::map<std::string, std::string>;

class FileTest : public ::testing::Test {
  protected:
    FileTest();
    ~FileTest() override;

    void StartLibrary();
    void StopLibrary();
    void OpenSession(uint32_t maximumRecordSize = 0);

    std::string Path(std::string_view name) const { return Directory.File(name); }

    // Each returns what the exported function says and leaves its failure in LastStatus(). A success that touches the
    // status record fails the test.
    bool Create(std::string_view name, const CreateOptions& options = FixedFile());
    bool Delete(std::string_view name);
    uint32_t Open(std::string_view name, const OpenOptions& options = {});  // kNone for failure
    bool Close(uint32_t file);
    bool Clear(uint32_t file);
    bool Flush();
    bool Put(uint32_t file, std::string_view key, std::string_view data);
    std::optional<std::string> Get(uint32_t file, std::string_view key);
    bool Erase(uint32_t file, std::string_view key);
    bool LockGroup(uint32_t file, uint32_t group, bool exclusive = true);
    bool UnlockGroup(uint32_t file, uint32_t group);
    std::optional<uint32_t> GroupOfKey(uint32_t file, std::string_view key);
    std::optional<FileHeaderRecord> HeaderOf(uint32_t file);

    // The two reports, with a bar for every separator.
    struct VerifyReports {
        std::string Statistics;
        std::string Problem;

        bool operator==(const VerifyReports&) const = default;
        friend void PrintTo(const VerifyReports& reports, std::ostream* out) {
            *out << reports.Statistics << "; " << reports.Problem;
        }
    };
    std::optional<VerifyReports> Verify(uint32_t file, uint32_t mode, uint32_t group = 0);

    // The file made by Create and opened.
    uint32_t CreateAndOpen(std::string_view name, const CreateOptions& options = FixedFile());

    template <class Function>
    bool Run(Function&& function) {
        constexpr StatusRecord kUntouched{0xA5A5A5A5, 0x5A5A5A5A, 0xA55A5AA5};
        status_ = kUntouched;
        const bool good = function(&status_) == 1;
        EXPECT_EQ(good, LastStatus() == Words(kUntouched));
        return good;
    }

    Status LastStatus() const { return Words(status_); }

    static qx::FileHandle& Handle(uint32_t file);
    static qx::OpenFile& Record(uint32_t file) { return *Handle(file).File; }
    static uint32_t CountOf(qx::Counter counter) { return qx::theProcessCounters.Value(counter); }

    // What the byte checker has against a file; empty for a good one.
    std::string Problems(std::string_view name, const qx_check::Options& options = {}) const;
    // Every record of a file, as its bytes say.
    Records StoredRecords(std::string_view name) const;

    // The group of a key as the byte checker works it out.
    static uint32_t GroupIn(uint32_t modulo, std::string_view key);

    // Keys that belong to `group` of a file with `modulo` groups.
    static std::vector<std::string> KeysOf(uint32_t group, uint32_t modulo, size_t count);

    // What calls hold for as long as they run; nothing but that may change from one moment between calls to another.
    struct Holdings {
        uint32_t TakenEvents = 0;
        int64_t HeapBlocks = 0;
        int64_t OtherHandles = 0;  // operating-system handles that are not those of an open hashed file or a lock file
        int64_t LockedBytes = 0;   // without user slots and markers

        bool operator==(const Holdings&) const = default;
    };
    Holdings Held();

    // The operating-system files that the process has open for its hashed files.
    static int64_t OpenParts();

    // No call holds a mutex, a group or a file of the process any more. `selectHolds`: those of every file.
    void ExpectNothingHeld(uint32_t selectHolds = 0);

    FaultyPlatform Faults;
    TestDirectory Directory;
    uint32_t Session = kNone;

  private:
    StatusRecord status_{};
};

}  // namespace qx_test
