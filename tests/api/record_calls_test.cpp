// Reading, writing and deleting records through the exported functions; what a call leaves is judged by the byte
// checker.
#include <algorithm>
#include <functional>

#include "checker/bytes.h"
#include "checker/file_builder.h"
#include "support/file_test.h"

namespace qx_test {
namespace {

using qx::Counter;

class RecordCalls : public FileTest {
  protected:
    qx::VolumeSettings& Settings(uint32_t file) { return Record(file).Volume.Settings; }

    // Keys in the order in which they are stored.
    std::vector<std::string> StoredKeys(std::string_view name) const {
        std::vector<std::string> keys;
        qx_check::CheckFile(Path(name), {},
                            [&](std::string_view key, std::string_view, uint32_t) { keys.emplace_back(key); });
        return keys;
    }

    // The open file's bytes, while this process has at most small changes of the header to itself.
    std::string OpenProblems(std::string_view name) const {
        qx_check::Options options;
        options.openProcesses = 1;
        return Problems(name, options);
    }
};

TEST_F(RecordCalls, KeysAndDataAreAnyBytes) {
    const uint32_t file = CreateAndOpen("F");
    const std::string odd("\0\x80\xFF\xFE", 4);
    const Records records = {{"", "for the empty key"},
                             {"empty", ""},
                             {"abc", "1"},
                             {"abcd", "2"},
                             {"ABC", "3"},
                             {odd, odd},
                             {"k" + odd, ""},
                             {std::string(300, 'k'), "long"}};
    for (const auto& [key, data] : records) {
        EXPECT_FALSE(Get(file, key));
        EXPECT_EQ(LastStatus(), (Status{100, 0, 0}));
        EXPECT_TRUE(Put(file, key, data));
    }
    for (const auto& [key, data] : records) {
        EXPECT_EQ(Get(file, key), data);
        EXPECT_TRUE(Run([&](StatusRecord* status) { return QXReadOnlyRecord(file, kKey, kData, status); }));
        EXPECT_EQ(Buffer(kData), data);
    }
    for (const std::string key : {"ab", "abcde", "abd", "k", "emptx"}) {
        EXPECT_FALSE(Get(file, key)) << key;
        EXPECT_FALSE(Erase(file, key)) << key;
        EXPECT_EQ(LastStatus(), (Status{100, 0, 0}));
    }
    EXPECT_TRUE(Erase(file, ""));
    EXPECT_FALSE(Get(file, ""));
    EXPECT_EQ(Handle(file).Counters.Value(Counter::ReadRecords), 2 * records.size() + 6);
    EXPECT_EQ(Handle(file).Counters.Value(Counter::ReadOnlyRecords), records.size());
    EXPECT_TRUE(Close(file));
    EXPECT_EQ(Problems("F"), "");
    EXPECT_EQ(StoredRecords("F").size(), records.size() - 1);
}

// A record that begins at every position of a frame, and whose key and data end around every frame boundary after that.
TEST_F(RecordCalls, RecordsMayLieAcrossFramesInEveryWay) {
    constexpr uint32_t kFrame = 256;
    constexpr uint32_t kPerFrame = kFrame - 14;
    const auto numberSize = [](uint32_t value) { return static_cast<uint32_t>(qx_check::EncodeNumber(value).size()); };
    std::string bytes;
    for (uint32_t i = 0; i < 1200; ++i) {
        bytes += static_cast<char>(i * 7 + i / 256);
    }
    uint64_t tried = 0;
    for (const uint32_t version : {110U, 120U}) {
        const std::string name = "F" + std::to_string(version);
        const uint32_t file = CreateAndOpen(name, FixedFile(1, kFrame, version));
        const uint32_t header = version == 110 ? 26 : 32;
        for (uint32_t filler = 0; filler < kFrame - header; ++filler) {
            ASSERT_TRUE(Put(file, "f", bytes.substr(0, filler)));
            const uint32_t fillerLength = 2 + filler;
            const uint32_t start = header + numberSize(fillerLength) + fillerLength + 1;
            const int64_t left = int64_t{kFrame} - start;
            for (const int64_t keyLength :
                 {int64_t{0}, int64_t{1}, left - 4, left - 3, left - 2, left + kPerFrame - 4}) {
                if (keyLength < 0) {
                    continue;
                }
                const std::string key = bytes.substr(0, static_cast<size_t>(keyLength));
                for (int64_t boundary = left; boundary <= left + 3 * int64_t{kPerFrame}; boundary += kPerFrame) {
                    for (int64_t delta = -2; delta <= 2; ++delta) {
                        // Less the terminator and two numbers, of which one may be a byte shorter.
                        const int64_t dataLength = boundary + delta - 4 - keyLength;
                        if (dataLength < 0 || (filler + delta) % 3 != 0) {
                            continue;
                        }
                        const std::string data = bytes.substr(0, static_cast<size_t>(dataLength));
                        ASSERT_TRUE(Put(file, key, data));
                        ASSERT_TRUE(Put(file, "zz", "behind"));
                        ASSERT_EQ(Get(file, key), data);
                        ASSERT_EQ(Get(file, "zz"), "behind");
                        ASSERT_EQ(OpenProblems(name), "")
                            << "start " << start << ", key " << keyLength << ", data " << dataLength;
                        ASSERT_TRUE(Erase(file, key));
                        ASSERT_EQ(Get(file, "zz"), "behind");
                        ASSERT_TRUE(Erase(file, "zz"));
                        ++tried;
                    }
                }
            }
            ASSERT_EQ(OpenProblems(name), "");
        }
        EXPECT_TRUE(Erase(file, "f"));
        EXPECT_TRUE(Close(file));
        EXPECT_EQ(Problems(name), "");
        EXPECT_EQ(ReadHashedFile(Path(name)).Overflow, "");
    }
    std::cout << tried << " records\n";
}

TEST_F(RecordCalls, ALongRecordIsPassedByItsSkipLink) {
    const uint32_t file = CreateAndOpen("F", FixedFile(1, 256));
    const std::string data(242 * 50, 'd');
    ASSERT_TRUE(Put(file, "long", data));
    ASSERT_TRUE(Put(file, "behind", "b"));
    const uint32_t before = CountOf(Counter::ReadFrames);
    EXPECT_EQ(Get(file, "behind"), "b");
    EXPECT_EQ(CountOf(Counter::ReadFrames) - before, 2U);
    EXPECT_EQ(Get(file, "long"), data);
}

TEST_F(RecordCalls, LimitsHoldForDataAndForKeyLists) {
    const std::string atLimit(100, 'd');
    const std::string overLimit(101, 'd');
    const uint32_t unlimited = CreateAndOpen("F");
    ASSERT_TRUE(Put(unlimited, "long", overLimit));
    const auto expectLimit = [&](uint32_t file) {
        EXPECT_TRUE(Put(file, "k", atLimit));
        EXPECT_EQ(Get(file, "k"), atLimit);
        EXPECT_FALSE(Put(file, "k", overLimit));
        EXPECT_EQ(LastStatus(), (Status{1002, 0, 0}));
        EXPECT_EQ(Get(file, "k"), atLimit);
        EXPECT_FALSE(Get(file, "long"));
        EXPECT_EQ(LastStatus(), (Status{1002, 0, 0}));
        EXPECT_TRUE(Erase(file, "k"));
    };
    const uint32_t firstSession = Session;
    OpenSession(100);
    const uint32_t limited = Open("F");
    expectLimit(limited);
    Settings(unlimited).MaximumRecordSize = 100;
    expectLimit(limited);
    expectLimit(unlimited);
    Settings(unlimited).MaximumRecordSize = 0;
    EXPECT_TRUE(Run([&](StatusRecord* status) { return QXCloseSession(Session, status); }));
    Session = firstSession;
    EXPECT_EQ(Get(unlimited, "long"), overLimit);

    // The keys of a group, each with one byte more, make up a list of at most the limit.
    const uint32_t file = CreateAndOpen("G", FixedFile(3));
    const std::vector<std::string> keys = KeysOf(2, 3, 2);
    const std::string first(97 - keys[0].size() - 1, '_');
    Settings(file).MaximumRecordSize = 100;
    std::string other;
    for (char c = 'a'; other.empty(); ++c) {
        const std::string key = first + c;
        if (GroupOfKey(file, key) == 2U) {
            other = key;
        }
    }
    ASSERT_TRUE(Put(file, keys[0], ""));
    ASSERT_TRUE(Put(file, other, ""));
    const FileBytes before = ReadHashedFile(Path("G"));
    const size_t used = keys[0].size() + 1 + other.size() + 1;
    ASSERT_GT(used + keys[1].size() + 1, 100U);
    EXPECT_FALSE(Put(file, keys[1], "data"));
    EXPECT_EQ(LastStatus(), (Status{1001, 1, 2}));
    EXPECT_EQ(ReadHashedFile(Path("G")), before);
    EXPECT_TRUE(Put(file, other, "a longer record under a key that is there"));
    Settings(file).MaximumRecordSize = static_cast<uint32_t>(used + keys[1].size() + 1);
    EXPECT_TRUE(Put(file, keys[1], "data")) << "exactly the limit";
}

// The same length: its bytes and nothing else. Any other: behind all others of the group.
TEST_F(RecordCalls, ReplacingOverwritesOrMovesToTheEnd) {
    const uint32_t file = CreateAndOpen("F", FixedFile(1, 256));
    for (const auto& [key, length] :
         std::vector<std::pair<std::string, size_t>>{{"a", 30}, {"long", 700}, {"b", 60}, {"none", 0}, {"c", 300}}) {
        ASSERT_TRUE(Put(file, key, std::string(length, 'o')));
    }
    const std::vector<std::string> order = {"a", "long", "b", "none", "c"};
    EXPECT_EQ(StoredKeys("F"), order);
    for (const std::string& key : order) {
        const FileBytes before = ReadHashedFile(Path("F"));
        const FileHeaderRecord header = *HeaderOf(file);
        const size_t length = Get(file, key)->size();
        const uint32_t written = CountOf(Counter::WriteFrames);
        ASSERT_TRUE(Put(file, key, std::string(length, 'n')));
        EXPECT_EQ(CountOf(Counter::WriteFrames) == written, length == 0) << "without data nothing is written";
        const FileBytes after = ReadHashedFile(Path("F"));
        ASSERT_EQ(after.Primary.size(), before.Primary.size());
        ASSERT_EQ(after.Overflow.size(), before.Overflow.size());
        size_t changed = 0;
        const auto countChanges = [&](const std::string& was, const std::string& is, size_t from) {
            for (size_t i = from; i < was.size(); ++i) {
                if (was[i] != is[i]) {
                    EXPECT_EQ(was[i], 'o');
                    EXPECT_EQ(is[i], 'n');
                    ++changed;
                }
            }
        };
        countChanges(before.Primary, after.Primary, 32);
        countChanges(before.Overflow, after.Overflow, 0);
        EXPECT_EQ(changed, length);
        EXPECT_EQ(HeaderOf(file)->RecordCount, header.RecordCount);
        EXPECT_EQ(HeaderOf(file)->Alpha, header.Alpha);
    }
    EXPECT_EQ(StoredKeys("F"), order);

    ASSERT_TRUE(Put(file, "long", std::string(699, 'x')));
    EXPECT_EQ(StoredKeys("F"), (std::vector<std::string>{"a", "b", "none", "c", "long"}));
    ASSERT_TRUE(Put(file, "a", std::string(31, 'x')));
    EXPECT_EQ(StoredKeys("F"), (std::vector<std::string>{"b", "none", "c", "long", "a"}));
    EXPECT_EQ(OpenProblems("F"), "");
}

TEST_F(RecordCalls, ChainsAreReusedCutAndFreed) {
    const uint32_t file = CreateAndOpen("F", FixedFile(2, 256));
    Settings(file).FillCharacter = ' ';
    qx_check::Options options;
    options.fillCharacter = ' ';
    options.openProcesses = 1;
    options.checkFill = false;  // group 0 was filled before
    const std::string ours = KeysOf(1, 2, 1).front();
    const std::string other = KeysOf(0, 2, 1).front();
    const auto check = [&](uint64_t chainFrames, uint64_t freeFrames, uint32_t highWater) {
        const qx_check::Report report = qx_check::CheckFile(Path("F"), options);
        EXPECT_TRUE(report.Clean()) << report.problems.front();
        EXPECT_EQ(report.chainFrames, chainFrames);
        EXPECT_EQ(report.freeFrames, freeFrames);
        EXPECT_EQ(report.highWater, highWater);
    };
    ASSERT_TRUE(Put(file, ours, std::string(300 + 242 * 2, 'a')));
    check(3, 0, 4);
    ASSERT_TRUE(Put(file, other, std::string(300, 'b')));
    check(4, 0, 5);
    ASSERT_TRUE(Put(file, ours, std::string(300, 'a')));
    check(2, 2, 5);
    ASSERT_TRUE(Put(file, ours, std::string(300 + 242 * 4, 'a')));
    check(6, 0, 7);
    ASSERT_TRUE(Erase(file, ours));
    check(1, 3, 5);
    const FileBytes bytes = ReadHashedFile(Path("F"));
    EXPECT_EQ(bytes.Primary.substr(256, 14), std::string("\x0D\0\0\0\0\0\0\0\0\2\0\0\0\x80", 14));
    EXPECT_EQ(bytes.Primary.substr(256 + 14), std::string(256 - 14, ' '));

    EXPECT_FALSE(Erase(file, ours));
    EXPECT_EQ(LastStatus(), (Status{100, 0, 0}));
    EXPECT_EQ(ReadHashedFile(Path("F")), bytes) << "nothing changes when there is nothing to delete";
    ASSERT_TRUE(Erase(file, other));
    check(0, 0, 1);
    EXPECT_EQ(ReadHashedFile(Path("F")).Overflow, "");
}

// Only group 0's frame carries the header, so the groups written here leave it as it is on disk.
TEST_F(RecordCalls, TheHeaderMayLagByTwoFramesAndTwentyRecords) {
    const auto stored = [&](std::string_view name, uint32_t offset) {
        const std::string primary = ReadHashedFile(Path(name)).Primary;
        return qx_check::Get32(reinterpret_cast<const uint8_t*>(primary.data()) + offset);
    };
    constexpr uint32_t kAlpha = 15;
    constexpr uint32_t kRecordCount = 22;
    for (const uint8_t headerLength : {uint8_t{22}, uint8_t{26}, uint8_t{32}}) {
        const std::string name = "F" + std::to_string(headerLength);
        qx_check::FileShape shape;
        shape.headerLength = headerLength;
        shape.modulo = 5;
        shape.frameSize = 256;
        shape.sizeLock = 2;
        qx_check::BuildFile(shape, {}).Save(Path(name));
        const uint32_t file = Open(name);
        const uint32_t empty = HeaderOf(file)->Alpha;
        const uint32_t onDisk = stored(name, kAlpha);
        EXPECT_EQ(empty, 33U + 14 * 4);

        // An overflowing group counts one frame, whatever it holds.
        ASSERT_TRUE(Put(file, KeysOf(1, 5, 1)[0], std::string(1000, 'd')));
        EXPECT_EQ(HeaderOf(file)->Alpha, empty + 256 - 14);
        ASSERT_TRUE(Put(file, KeysOf(2, 5, 1)[0], std::string(1000, 'd')));
        EXPECT_EQ(HeaderOf(file)->Alpha, empty + 2 * (256 - 14));
        const std::string key = KeysOf(3, 5, 1)[0];
        ASSERT_TRUE(Put(file, key, std::string(28 - 3 - key.size(), 'd')));
        EXPECT_EQ(HeaderOf(file)->Alpha, empty + 512);
        EXPECT_EQ(stored(name, kAlpha), onDisk);
        ASSERT_TRUE(Put(file, key, std::string(29 - 3 - key.size(), 'd')));
        EXPECT_EQ(stored(name, kAlpha), empty + 513);
        EXPECT_EQ(HeaderOf(file)->RecordCount, 3U);
        if (headerLength > 22) {
            EXPECT_EQ(stored(name, kRecordCount), 3U);
        }

        const std::vector<std::string> keys = KeysOf(4, 5, 21);
        for (size_t i = 0; i < keys.size(); ++i) {
            EXPECT_EQ(stored(name, kAlpha), empty + 513) << i;
            ASSERT_TRUE(Put(file, keys[i], ""));
        }
        const bool counts = headerLength > 22;
        EXPECT_EQ(stored(name, kAlpha) != empty + 513, counts) << "the 21st record";
        EXPECT_EQ(HeaderOf(file)->RecordCount, 24U);
        if (counts) {
            EXPECT_EQ(stored(name, kRecordCount), 24U);
        }
        EXPECT_TRUE(Close(file));
        EXPECT_EQ(Problems(name), "");
    }
}

// Fixes what a call does to the rest of the process when the callback refuses it.
TEST_F(RecordCalls, RefusedBuffersLeaveEverythingAsItWas) {
    const uint32_t file = CreateAndOpen("F");
    ASSERT_TRUE(Put(file, "k", "data"));
    const FileBytes bytes = ReadHashedFile(Path("F"));
    uint32_t group = 0;
    const auto read = [&](StatusRecord* status) { return QXReadRecord(file, kKey, kData, status); };
    const auto readOnly = [&](StatusRecord* status) { return QXReadOnlyRecord(file, kKey, kData, status); };
    const auto write = [&](StatusRecord* status) { return QXWriteRecord(file, kKey, kData, status); };
    const auto erase = [&](StatusRecord* status) { return QXDeleteRecord(file, kKey, status); };
    const auto groupOf = [&](StatusRecord* status) { return QXGetGroupNumber(file, kKey, &group, status); };
    struct Case {
        std::function<int32_t(StatusRecord*)> Call;
        uint32_t Operation;
        uint32_t Nth;
        bool Told;  // the callback's own status, or else 160
    };
    for (const auto& [call, operation, nth, told] :
         {Case{read, 0, 1, true}, Case{readOnly, 0, 1, true}, Case{write, 0, 1, true}, Case{write, 0, 2, true},
          Case{erase, 0, 1, true}, Case{groupOf, 0, 1, true}, Case{read, 2, 1, false}, Case{readOnly, 2, 1, false}}) {
        Buffer(kKey) = "k";
        Buffer(kData) = "other";
        const uint32_t refusals = CountOf(Counter::ReadAllocationErrors);
        RefuseCallback(operation, nth, {4711, 8, 15});
        EXPECT_FALSE(Run(call));
        EXPECT_EQ(LastStatus(), told ? (Status{4711, 8, 15}) : (Status{160, 0, 0}));
        EXPECT_EQ(CountOf(Counter::ReadAllocationErrors), refusals + (told ? 0 : 1));
        AcceptCallbacks();
        ExpectNothingHeld();
        EXPECT_EQ(ReadHashedFile(Path("F")), bytes);
    }
    EXPECT_EQ(Get(file, "k"), "data");
}

// Frames so large that no thread keeps memory for them: every call has to ask for it.
TEST_F(RecordCalls, NoMemoryToWorkWith) {
    const uint32_t file = CreateAndOpen("F", FixedFile(2, 1 << 20));
    const std::string key = KeysOf(1, 2, 1)[0];
    ASSERT_TRUE(Put(file, key, "data"));
    const FileBytes bytes = ReadHashedFile(Path("F"));
    const std::function<int32_t(StatusRecord*)> calls[] = {
        [&](StatusRecord* status) { return QXReadRecord(file, kKey, kData, status); },
        [&](StatusRecord* status) { return QXWriteRecord(file, kKey, kData, status); },
        [&](StatusRecord* status) { return QXDeleteRecord(file, kKey, status); },
        [&](StatusRecord* status) { return QXClearFile(file, status); },
        [&](StatusRecord* status) { return QXGetFileHeader(file, nullptr, status); },
    };
    for (const auto& call : calls) {
        Buffer(kKey) = key;
        Buffer(kData) = "other";
        const uint32_t before = CountOf(Counter::AllocateTemporaryDataErrors);
        Faults.Fail(Call::BufferAllocate, 1);
        EXPECT_FALSE(Run(call));
        EXPECT_EQ(LastStatus(), (Status{1014, 0, 0}));
        EXPECT_EQ(CountOf(Counter::AllocateTemporaryDataErrors), before + 1);
        Faults.Clear();
        ExpectNothingHeld();
        EXPECT_EQ(ReadHashedFile(Path("F")), bytes);
    }
    EXPECT_EQ(Get(file, key), "data");

    // Closing has counts to store and no memory for that; the handle goes all the same.
    Faults.Fail(Call::BufferAllocate, 1);
    EXPECT_FALSE(Close(file));
    EXPECT_EQ(LastStatus(), (Status{1014, 0, 0}));
    Faults.Clear();
    EXPECT_FALSE(Close(file));
    EXPECT_EQ(LastStatus(), (Status{1100, 0, 0}));
}

TEST_F(RecordCalls, ReadOnlyHandlesAndFilesRefuseChanges) {
    const uint32_t writer = CreateAndOpen("F");
    ASSERT_TRUE(Put(writer, "k", "data"));
    OpenOptions readOnly{};
    readOnly.Size = sizeof readOnly;
    readOnly.ReadOnly = 1;
    const uint32_t reader = Open("F", readOnly);
    const auto expectRefused = [&](uint32_t file) {
        const uint32_t locks = CountOf(Counter::GroupLocks);
        EXPECT_FALSE(Put(file, "k", "other"));
        EXPECT_EQ(LastStatus(), (Status{102, 1, 0}));
        EXPECT_FALSE(Erase(file, "k"));
        EXPECT_EQ(LastStatus(), (Status{102, 1, 0}));
        EXPECT_FALSE(Clear(file));
        EXPECT_EQ(LastStatus(), (Status{102, 1, 0}));
        EXPECT_EQ(CountOf(Counter::GroupLocks), locks) << "refused before any lock is taken";
        EXPECT_EQ(Get(file, "k"), "data");
        ExpectNothingHeld();
    };
    expectRefused(reader);
    EXPECT_TRUE(Put(writer, "k2", "data"));
    EXPECT_TRUE(Close(writer));
    EXPECT_TRUE(Close(reader));

    // A file that the system only opens for reading.
    Faults.Fail(Call::Open, 2);  // the first one is that of the lock file
    const uint32_t file = Open("F");
    EXPECT_TRUE(Faults.Delivered());
    Faults.Clear();
    EXPECT_TRUE(Record(file).OpenedReadOnly);
    expectRefused(file);
    EXPECT_TRUE(Handle(Open("F")).ReadOnly == 0);
}

TEST_F(RecordCalls, AVolumeMayWantEveryUpdateFlushed) {
    const uint32_t file = CreateAndOpen("F", FixedFile(1, 256));
    Settings(file).FlushAllUpdates = true;
    const auto flushesOf = [&](auto&& call) {
        const uint64_t before = Faults.Count(Call::Flush);
        call();
        return Faults.Count(Call::Flush) - before;
    };
    EXPECT_EQ(flushesOf([&] { EXPECT_TRUE(Put(file, "small", "1")); }), 1U);
    EXPECT_EQ(flushesOf([&] { EXPECT_TRUE(Put(file, "small", "2")); }), 1U) << "overwritten in place";
    EXPECT_EQ(flushesOf([&] { EXPECT_TRUE(Put(file, "long", std::string(600, 'd'))); }), 2U);
    EXPECT_EQ(flushesOf([&] { EXPECT_FALSE(Erase(file, "missing")); }), 0U);
    EXPECT_EQ(flushesOf([&] { EXPECT_EQ(Get(file, "small"), "2"); }), 0U);

    // The record is there although the call had to fail.
    Faults.Fail(Call::Flush, 1);
    EXPECT_FALSE(Put(file, "small", "33"));
    EXPECT_EQ(LastStatus(), (Status{104, 1, 0}));
    Faults.Fail(Call::Flush, 2);
    EXPECT_FALSE(Put(file, "long", std::string(900, 'd')));
    EXPECT_EQ(LastStatus(), (Status{104, 2, 0}));
    Faults.Clear();
    EXPECT_EQ(Get(file, "small"), "33");
    EXPECT_EQ(Get(file, "long"), std::string(900, 'd'));
    EXPECT_EQ(OpenProblems("F"), "");

    Settings(file).FlushAllUpdates = false;
    Settings(file).FlushFileSizeUpdates = true;
    EXPECT_EQ(flushesOf([&] { EXPECT_TRUE(Put(file, "small", "1")); }), 0U);
    EXPECT_EQ(flushesOf([&] { EXPECT_TRUE(Put(file, "long", std::string(2000, 'd'))); }), 1U) << "the file grew";
    EXPECT_EQ(flushesOf([&] { EXPECT_TRUE(Erase(file, "long")); }), 1U) << "the file shrank";
}

// Another process has changed the number of groups since this one looked.
class StaleModulo : public RecordCalls {
  protected:
    static constexpr uint32_t kFrameSize = 256;

    qx_check::BuiltFile Built(uint32_t modulo, const std::map<uint32_t, uint32_t>& stamps = {}) const {
        qx_check::FileShape shape;
        shape.modulo = modulo;
        shape.frameSize = kFrameSize;
        shape.sizeLock = 2;
        shape.stamps = stamps;
        return qx_check::BuildFile(shape, records_);
    }

    // Into the files that are open, unlike the builder's own way of saving.
    void Change(const qx_check::BuiltFile& file) const {
        const auto bytes = [](const std::vector<uint8_t>& from) { return std::string(from.begin(), from.end()); };
        WriteWholeFile(Path("F") + ".LK", bytes(file.primary));
        WriteWholeFile(Path("F") + ".OV", bytes(file.overflow));
    }

    StaleModulo() {
        for (uint32_t i = 0; i < 60; ++i) {
            records_.push_back({"key " + std::to_string(i), std::string(i * 3, 'd')});
        }
    }

    std::vector<qx_check::Record> records_;
};

TEST_F(StaleModulo, EveryKeyIsFoundAfterAnyChange) {
    for (const auto& [before, after] : std::vector<std::pair<uint32_t, uint32_t>>{
             {1, 2}, {2, 1}, {4, 5}, {5, 4}, {5, 11}, {11, 5}, {6, 7}, {7, 6}, {1, 30}, {30, 1}}) {
        for (const qx_check::Record& first : records_) {
            SCOPED_TRACE(std::to_string(before) + " to " + std::to_string(after) + ", " + first.key);
            Change(Built(before));
            const uint32_t file = Open("F");
            ASSERT_EQ(HeaderOf(file)->Modulo, before);
            Change(Built(after));
            const uint32_t groupBefore = GroupIn(before, first.key);
            EXPECT_EQ(GroupOfKey(file, first.key), groupBefore) << "as this process last read it";
            ASSERT_EQ(Get(file, first.key), first.data);
            // The header is read again only if the group's own frame does not vouch for the key.
            const bool vouched = groupBefore != 0 && groupBefore == GroupIn(after, first.key);
            EXPECT_EQ(Record(file).Modulo, vouched ? before : after);
            EXPECT_TRUE(Put(file, first.key, "shorter"));
            EXPECT_EQ(Get(file, records_.back().key),
                      first.key == records_.back().key ? "shorter" : records_.back().data);
            ExpectNothingHeld();
            ASSERT_TRUE(Close(file));
            EXPECT_EQ(Problems("F"), "");
        }
    }
}

TEST_F(StaleModulo, AKeyThatCannotBePinnedDownFails) {
    Change(Built(5));
    const uint32_t file = Open("F");
    // A key that is in group 1 of 5 and not of 11.
    std::string key;
    for (const qx_check::Record& record : records_) {
        if (GroupIn(5, record.key) == 1 && GroupIn(11, record.key) != 1) {
            key = record.key;
        }
    }
    ASSERT_NE(key, "");
    Change(Built(5, {{1, 11}}));
    const auto expectFailure = [&](const Status& status) {
        EXPECT_FALSE(Get(file, key));
        EXPECT_EQ(LastStatus(), status);
        EXPECT_FALSE(Put(file, key, ""));
        EXPECT_EQ(LastStatus(), status);
        EXPECT_FALSE(Erase(file, key));
        EXPECT_EQ(LastStatus(), status);
        ExpectNothingHeld();
    };
    expectFailure({129, 1, 0});

    // The group's frame is not there, even under the modulo of the header.
    qx_check::BuiltFile cut = Built(5);
    cut.primary.resize(kFrameSize);
    Change(cut);
    expectFailure({107, 1, 2});
}

}  // namespace
}  // namespace qx_test
