#include "support/file_test.h"

#include <algorithm>
#include <thread>

#include "checker/group_rule.h"
#include "runtime/library_record.h"
#include "runtime/wait_event_pool.h"
#include "volume/volume_record.h"

namespace qx_test {

CreateOptions FixedFile(uint32_t modulo, uint32_t frameSize, uint32_t version) {
    return {sizeof(CreateOptions), modulo, frameSize, 0, 2, version};
}

FileTest::FileTest() {
    AcceptCallbacks();
    StartLibrary();
}

FileTest::~FileTest() {
    Faults.Clear();
    StopLibrary();
    EXPECT_EQ(Faults.Held.OpenHandles, 0);
    EXPECT_EQ(Faults.Held.Heaps, 0);
    EXPECT_EQ(Faults.Held.Events, 0);
}

// The worker takes its wake event some time after it was started; what is held is only compared from then on.
void FileTest::StartLibrary() {
    ApiVersionRecord version{sizeof version, 1, 1, 0};
    ASSERT_TRUE(Run([&](StatusRecord* status) { return QXInitialize(&version, status); }));
    while (qx::theWaitEvents.TakenCount() == 0) {
        std::this_thread::yield();
    }
    OpenSession();
}

void FileTest::StopLibrary() {
    EXPECT_TRUE(Run([](StatusRecord* status) { return QXTerminate(status); }));
}

void FileTest::OpenSession(uint32_t maximumRecordSize) {
    SessionOptions options{};
    options.Size = sizeof options;
    options.MaximumRecordSize = maximumRecordSize;
    ASSERT_TRUE(Run([&](StatusRecord* status) { return QXOpenSession(TestCallback, &options, &Session, status); }));
}

bool FileTest::Create(std::string_view name, const CreateOptions& options) {
    Buffer(kName) = Path(name);
    return Run([&](StatusRecord* status) { return QXCreateFile(Session, kName, &options, status); });
}

bool FileTest::Delete(std::string_view name) {
    Buffer(kName) = Path(name);
    return Run([&](StatusRecord* status) { return QXDeleteFile(Session, kName, status); });
}

uint32_t FileTest::Open(std::string_view name, const OpenOptions& options) {
    Buffer(kName) = Path(name);
    uint32_t file = kNone;
    Run([&](StatusRecord* status) { return QXOpenFile(Session, kName, &options, &file, status); });
    return file;
}

bool FileTest::Close(uint32_t file) {
    return Run([&](StatusRecord* status) { return QXCloseFile(file, status); });
}

bool FileTest::Clear(uint32_t file) {
    return Run([&](StatusRecord* status) { return QXClearFile(file, status); });
}

bool FileTest::Flush() {
    return Run([&](StatusRecord* status) { return QXFlush(Session, status); });
}

bool FileTest::Put(uint32_t file, std::string_view key, std::string_view data) {
    Buffer(kKey) = key;
    Buffer(kData) = data;
    return Run([&](StatusRecord* status) { return QXWriteRecord(file, kKey, kData, status); });
}

std::optional<std::string> FileTest::Get(uint32_t file, std::string_view key) {
    Buffer(kKey) = key;
    Buffer(kData) = "left over";
    if (!Run([&](StatusRecord* status) { return QXReadRecord(file, kKey, kData, status); })) {
        return std::nullopt;
    }
    return Buffer(kData);
}

bool FileTest::Erase(uint32_t file, std::string_view key) {
    Buffer(kKey) = key;
    return Run([&](StatusRecord* status) { return QXDeleteRecord(file, kKey, status); });
}

bool FileTest::LockGroup(uint32_t file, uint32_t group, bool exclusive) {
    return Run([&](StatusRecord* status) { return QXLockGroup(file, group, exclusive ? 1 : 0, status); });
}

bool FileTest::UnlockGroup(uint32_t file, uint32_t group) {
    return Run([&](StatusRecord* status) { return QXUnlockGroup(file, group, status); });
}

std::optional<uint32_t> FileTest::GroupOfKey(uint32_t file, std::string_view key) {
    Buffer(kKey) = key;
    uint32_t group = kNone;
    if (!Run([&](StatusRecord* status) { return QXGetGroupNumber(file, kKey, &group, status); })) {
        return std::nullopt;
    }
    return group;
}

std::optional<FileHeaderRecord> FileTest::HeaderOf(uint32_t file) {
    FileHeaderRecord header{};
    header.Size = sizeof header;
    if (!Run([&](StatusRecord* status) { return QXGetFileHeader(file, &header, status); })) {
        return std::nullopt;
    }
    return header;
}

std::optional<FileTest::VerifyReports> FileTest::Verify(uint32_t file, uint32_t mode, uint32_t group) {
    constexpr uint32_t kStatistics = kKey;
    constexpr uint32_t kProblem = kData;
    Buffer(kStatistics) = Buffer(kProblem) = "left over";
    if (!Run([&](StatusRecord* status) { return QXVerifyGroup(file, mode, group, kStatistics, kProblem, status); })) {
        return std::nullopt;
    }
    VerifyReports reports{Buffer(kStatistics), Buffer(kProblem)};
    for (std::string* report : {&reports.Statistics, &reports.Problem}) {
        std::replace(report->begin(), report->end(), '\xFE', '|');
    }
    return reports;
}

uint32_t FileTest::CreateAndOpen(std::string_view name, const CreateOptions& options) {
    EXPECT_TRUE(Create(name, options));
    const uint32_t file = Open(name);
    EXPECT_NE(file, kNone);
    return file;
}

qx::FileHandle& FileTest::Handle(uint32_t file) {
    return *qx::theLibrary.Files.PayloadOf<qx::FileHandle>(file);
}

std::string FileTest::Problems(std::string_view name, const qx_check::Options& options) const {
    std::string text;
    for (const std::string& problem : qx_check::CheckFile(Path(name), options).problems) {
        text += problem + '\n';
    }
    return text;
}

Records FileTest::StoredRecords(std::string_view name) const {
    Records records;
    qx_check::CheckFile(Path(name), {}, [&](std::string_view key, std::string_view data, uint32_t) {
        EXPECT_TRUE(records.emplace(key, data).second) << "twice in the file: " << key;
    });
    return records;
}

uint32_t FileTest::GroupIn(uint32_t modulo, std::string_view key) {
    return qx_check::GroupOf(qx_check::HashKey(key), qx_check::SplitModulo(modulo));
}

std::vector<std::string> FileTest::KeysOf(uint32_t group, uint32_t modulo, size_t count) {
    std::vector<std::string> keys;
    for (uint32_t i = 0; keys.size() < count; ++i) {
        std::string key = "k" + std::to_string(i);
        if (GroupIn(modulo, key) == group) {
            keys.push_back(std::move(key));
        }
    }
    return keys;
}

FileTest::Holdings FileTest::Held() {
    Holdings held{qx::theWaitEvents.TakenCount(), Faults.Held.HeapBlocks, Faults.Held.OpenHandles,
                  Faults.Held.LockedBytes};
    held.OtherHandles -= OpenParts();
    for (const auto& [path, volume] : qx::Volumes()) {
        held.OtherHandles -= volume->LockFileEntry.IsOpen();
        held.LockedBytes -= volume->LockFileEntry.IsOpen();  // the user slot
        for (const auto& [name, file] : volume->Files) {
            held.LockedBytes -= file->PrimaryPart.Cached.MarkerPosition != 0;
            held.LockedBytes -= file->OverflowPart.Cached.MarkerPosition != 0;
        }
    }
    return held;
}

int64_t FileTest::OpenParts() {
    int64_t open = 0;
    for (const auto& [path, volume] : qx::Volumes()) {
        for (const auto& [name, file] : volume->Files) {
            open += file->PrimaryPart.Cached.IsOpen();
            open += file->OverflowPart.Cached.IsOpen();
        }
    }
    return open;
}

namespace {

bool IsFree(qx::ClaimMutex& mutex) {
    qx::ClaimMutex::Node node;
    if (!mutex.TryClaim(node)) {
        return false;
    }
    mutex.Release(node);
    return true;
}

}  // namespace

void FileTest::ExpectNothingHeld(uint32_t selectHolds) {
    EXPECT_TRUE(IsFree(qx::theLibrary.ApiMutex));
    for (const auto& [path, volume] : qx::Volumes()) {
        EXPECT_EQ(volume->ByteLocks.Snapshot({}),
                  volume->Locks.Supported && selectHolds > 0 ? volume->Files.size() : 0);
        for (const auto& [name, file] : volume->Files) {
            EXPECT_TRUE(file->GroupLocks.IsEmpty());
            EXPECT_TRUE(IsFree(file->StructureMutex));
            EXPECT_EQ(file->SelectCount, selectHolds);
            for (qx::FilePart* part : {&file->PrimaryPart, &file->OverflowPart}) {
                EXPECT_TRUE(IsFree(part->Cached.Mutex));
                EXPECT_EQ(part->Cached.UserCount(), 0U);
            }
        }
    }
}

}  // namespace qx_test
