// Creating, opening, flushing, clearing, closing and deleting files through the exported functions.
#include <filesystem>

#include "checker/file_builder.h"
#include "storage/layout/file_header.h"
#include "support/file_test.h"
#include "support/other_process.h"

namespace qx_test {
namespace {

using qx::Counter;

class FileCalls : public FileTest {
  protected:
    bool Exists(std::string_view name) const {
        return std::filesystem::exists(Path(name) + ".LK") || std::filesystem::exists(Path(name) + ".OV");
    }

    qx::FileHeader StoredHeader(std::string_view name) const {
        const std::string primary = ReadHashedFile(Path(name)).Primary;
        return qx::DecodeFileHeader(reinterpret_cast<const uint8_t*>(primary.data()));
    }

    // The only volume that the test uses; known from its first use on.
    static qx::VolumeRecord& Volume() { return *qx::Volumes().begin()->second; }

    static std::string LongData() { return std::string(1000, 'd'); }
};

TEST_F(FileCalls, ANewFileIsExactlyItsHeaderAndEmptyGroups) {
    Buffer(kName) = Path("F");
    ASSERT_TRUE(Run([&](StatusRecord* status) { return QXCreateFile(Session, kName, nullptr, status); }));
    const FileBytes bytes = ReadHashedFile(Path("F"));
    const unsigned char header[] = {0x20, 0, 0,    0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 4, 0x21, 0,
                                    0,    0, 0xCC, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80};
    static_assert(sizeof header == 33);
    EXPECT_EQ(bytes.Primary, std::string(reinterpret_cast<const char*>(header), 33) + std::string(991, '\0'));
    EXPECT_EQ(bytes.Overflow, "");

    Volume().Settings.FillCharacter = ' ';
    ASSERT_TRUE(Create("G", {sizeof(CreateOptions), 2, 256, 128, 1, 110}));
    const std::string links(8, '\0');
    const std::string stamp("\2\0\0\0", 4);
    EXPECT_EQ(ReadHashedFile(Path("G")).Primary,
              "\x1A" + links + stamp + std::string("\0\1\x29\0\0\0\x80\1\0\0\0\0\0\x80", 14) + std::string(229, ' ') +
                  "\x0D" + links + stamp + "\x80" + std::string(242, ' '));
}

TEST_F(FileCalls, OptionsAreDefaultedAndMovedIntoTheirRange) {
    struct Case {
        CreateOptions Options;
        qx::FileHeader Header;
    };
    const Case cases[] = {
        {{0, 9, 9, 9, 9, 9}, {32, 1, 1024, 33, 204, 0, 0}},
        {{8, 7, 512, 100, 3, 110}, {32, 7, 1024, 33 + 14 * 6, 204, 0, 0}},
        {{11, 7, 512, 100, 3, 110}, {32, 7, 1024, 33 + 14 * 6, 204, 0, 0}},
        {{12, 2, 100, 100, 3, 110}, {32, 2, 256, 33 + 14, 204, 0, 0}},
        {{16, 1, 512, 10, 3, 110}, {32, 1, 512, 33, 25, 0, 0}},
        {{20, 1, 0, 300, 0x10001, 110}, {32, 1, 1024, 33, 255, 1, 0}},
        {{24, 3, 256, 25, 2, 100}, {26, 3, 256, 33 + 14 * 2, 25, 2, 0}},
        {{24, 0, 65535, 255, 0, 110}, {26, 1, 65535, 33, 255, 0, 0}},
        {{100, 0, 70001, 0, 0xFFFF, 120}, {32, 1, 70001, 33, 204, 0xFFFF, 0}},
    };
    for (const auto& [options, expected] : cases) {
        CreateOptions given = options;
        ASSERT_TRUE(Create("F", given));
        const qx::FileHeader header = StoredHeader("F");
        EXPECT_EQ(header.HeaderLength, expected.HeaderLength);
        EXPECT_EQ(header.Modulo, expected.Modulo);
        EXPECT_EQ(header.FrameSize, expected.FrameSize);
        EXPECT_EQ(header.Alpha, expected.Alpha);
        EXPECT_EQ(header.Threshold, expected.Threshold);
        EXPECT_EQ(header.SizeLock, expected.SizeLock);
        EXPECT_EQ(Problems("F"), "");
        ASSERT_TRUE(Delete("F"));
    }
    EXPECT_FALSE(Create("F", {24, 1, 65536, 0, 0, 110}));
    EXPECT_EQ(LastStatus(), (Status{1008, 1, 0}));
    EXPECT_FALSE(Exists("F"));
}

TEST_F(FileCalls, AFileIsThereOrNot) {
    EXPECT_EQ(Open("F"), kNone);
    EXPECT_EQ(LastStatus(), (Status{231, 1, 0}));
    EXPECT_FALSE(Delete("F"));
    EXPECT_EQ(LastStatus(), (Status{231, 1, 0}));
    WriteWholeFile(Path("F") + ".OV", "left by somebody");
    ASSERT_TRUE(Create("F"));
    EXPECT_EQ(ReadHashedFile(Path("F")).Overflow, "");
    EXPECT_FALSE(Create("F"));
    EXPECT_EQ(LastStatus(), (Status{230, 1, 0}));

    const uint32_t file = Open("F");
    EXPECT_FALSE(Delete("F"));
    EXPECT_EQ(LastStatus(), (Status{1102, 0, 0}));
    std::filesystem::rename(Path("F") + ".LK", Path("F") + ".AWAY");
    while (qx::CloseOneIdleFile()) {
    }
    EXPECT_FALSE(Create("F"));
    EXPECT_EQ(LastStatus(), (Status{1102, 0, 0}));
    std::filesystem::rename(Path("F") + ".AWAY", Path("F") + ".LK");
    ASSERT_TRUE(Close(file));

    Volume().Settings.ReadOnly = true;
    EXPECT_FALSE(Delete("F"));
    EXPECT_EQ(LastStatus(), (Status{102, 1, 0}));
    EXPECT_FALSE(Create("G"));
    EXPECT_EQ(LastStatus(), (Status{102, 1, 0}));
    const uint32_t reader = Open("F");
    EXPECT_FALSE(Put(reader, "k", ""));
    EXPECT_EQ(LastStatus(), (Status{102, 1, 0}));
    ASSERT_TRUE(Close(reader));
    Volume().Settings.ReadOnly = false;
    std::filesystem::remove(Path("F") + ".OV");
    EXPECT_TRUE(Delete("F")) << "also without its overflow file";
    EXPECT_FALSE(Exists("F"));
    EXPECT_TRUE(std::filesystem::remove(Path("MOXLOCKS")));
    EXPECT_TRUE(std::filesystem::is_empty(Directory.Path())) << "besides the lock file";
}

TEST_F(FileCalls, AFailedCreateLeavesNoPrimaryFile) {
    ASSERT_TRUE(Create("OTHER"));
    Volume().Settings.FlushFileSizeUpdates = true;
    using qx::SystemError;
    struct Case {
        Call At;
        uint64_t Nth;
        SystemError Error;
        Status Told;
    };
    const Case cases[] = {
        {Call::Exists, 2, SystemError::NoHandles, {1029, 2, 0}},
        {Call::Create, 1, SystemError::Other, {1008, 1, 0}},
        {Call::Create, 1, SystemError::AlreadyExists, {1008, 1, 0}},
        {Call::Create, 1, SystemError::NoHandles, {1029, 1, 0}},
        {Call::SetSize, 1, SystemError::VolumeFull, {104, 1, 9}},
        {Call::Write, 1, SystemError::Other, {104, 1, 0}},
        {Call::Write, 4, SystemError::VolumeFull, {103, 1, 3}},
        {Call::Write, 10, SystemError::Other, {104, 1, 9}},
        {Call::Flush, 1, SystemError::Other, {104, 1, 0}},
        {Call::Create, 2, SystemError::Other, {1008, 2, 0}},
        {Call::Create, 2, SystemError::NoHandles, {1029, 2, 0}},
    };
    for (const auto& [at, nth, error, told] : cases) {
        const uint64_t writes = Faults.Count(Call::Write);
        const uint32_t full = Volume().Counters.Value(Counter::VolumeFullErrors);
        const uint32_t failed = Volume().Counters.Value(Counter::WriteErrors);
        Faults.Fail(at, nth, error);
        EXPECT_FALSE(Create("F", FixedFile(10, 256)));
        EXPECT_TRUE(Faults.Delivered());
        EXPECT_EQ(LastStatus(), told);
        EXPECT_FALSE(Exists("F"));
        const bool isFull = told[0] == 103;
        EXPECT_EQ(Volume().Counters.Value(Counter::VolumeFullErrors) - full, isFull ? 1U : 0U);
        EXPECT_EQ(Volume().Counters.Value(Counter::WriteErrors) - failed, told[0] == 104 ? 1U : 0U);
        if (at == Call::Write) {
            EXPECT_EQ(Faults.Count(Call::Write) - writes, 10U) << "every frame is tried";
        }
        ExpectNothingHeld();
    }
    for (const auto& [error, told] :
         {std::pair{SystemError::Other, Status{104, 2, 0}}, std::pair{SystemError::InUse, Status{104, 2, 0}},
          std::pair{SystemError::NoHandles, Status{1029, 2, 0}}}) {
        WriteWholeFile(Path("F") + ".OV", "left by somebody");
        Faults.Fail(Call::ClaimForDelete, 1, error);
        EXPECT_FALSE(Create("F"));
        EXPECT_EQ(LastStatus(), told);
        EXPECT_FALSE(std::filesystem::exists(Path("F") + ".LK"));
    }
    // Frames so large that there is no memory kept for them.
    Faults.Fail(Call::BufferAllocate, 1);
    EXPECT_FALSE(Create("F", FixedFile(1, 5 << 20)));
    EXPECT_EQ(LastStatus(), (Status{1014, 0, 0}));
    EXPECT_FALSE(Exists("F"));
    Faults.Clear();
    EXPECT_TRUE(Create("F"));
}

TEST_F(FileCalls, HandlesFollowTheirOptions) {
    ASSERT_TRUE(Create("F"));
    const OpenOptions all{0, 0, 1, 0x1FD, 77, 5, 6, 88};
    const auto options = [&](uint32_t size, uint32_t reuse = 0) {
        OpenOptions given = all;
        given.Size = size;
        given.ReuseHandle = reuse;
        return given;
    };
    Buffer(kName) = Path("F");
    uint32_t first = kNone;
    ASSERT_TRUE(Run([&](StatusRecord* status) { return QXOpenFile(Session, kName, nullptr, &first, status); }));
    for (const uint32_t size : {0U, 4U, 8U, 12U, 16U, 20U, 24U, 28U, 32U, 400U}) {
        const uint32_t file = Open("F", options(size));
        ASSERT_NE(file, first);
        const qx::FileHandle& handle = Handle(file);
        EXPECT_EQ(handle.ReadOnly, size >= 12);
        EXPECT_EQ(handle.SelectDelimiter, size >= 16 ? all.SelectDelimiter : 0xFE);
        EXPECT_EQ(handle.SelectMinimumSize, size >= 20 ? 77U : 0U);
        EXPECT_EQ(handle.TrimLastDelimiter, size >= 24);
        EXPECT_EQ(handle.PositionObjectInUse, size >= 32);
        EXPECT_EQ(handle.PositionObject, size >= 32 ? 88U : 0U);
        ASSERT_TRUE(Close(file));
    }
    EXPECT_EQ(Open("F", options(8, 1)), first);
    EXPECT_EQ(Open("F", options(32, 1)), first);
    EXPECT_FALSE(Handle(first).ReadOnly);
    EXPECT_EQ(Handle(first).Counters.Value(Counter::OpenFiles), 3U);
    const uint32_t second = Open("F", options(4, 1));
    EXPECT_NE(second, first);
    const uint32_t ofFirst = Session;
    OpenSession();
    const uint32_t elsewhere = Open("F", options(8, 1));
    EXPECT_NE(elsewhere, first) << "another session's handle is not reused";
    EXPECT_EQ(Handle(elsewhere).File, Handle(first).File);
    EXPECT_TRUE(Put(elsewhere, "k", "d"));
    Session = ofFirst;
    EXPECT_TRUE(Close(first));
    EXPECT_FALSE(Close(first));
    EXPECT_EQ(LastStatus(), (Status{1100, 0, 0}));
    EXPECT_FALSE(Close(12345));
    EXPECT_EQ(LastStatus(), (Status{1100, 0, 1}));
    EXPECT_TRUE(Close(second));
    EXPECT_EQ(Get(elsewhere, "k"), "d");
    EXPECT_TRUE(Close(elsewhere));
}

TEST_F(FileCalls, TheHeaderIsToldAsFarAsTheRecordReaches) {
    constexpr uint32_t kUnset = 0xEEEEEEEE;
    for (const auto& [length, version] : {std::pair{uint8_t{22}, 100U}, {uint8_t{26}, 110U}, {uint8_t{32}, 120U}}) {
        qx_check::FileShape shape;
        shape.headerLength = length;
        shape.modulo = 3;
        shape.frameSize = 512;
        shape.threshold = 99;
        shape.sizeLock = 7;
        qx_check::BuildFile(shape, {{"k", "data"}}).Save(Path("F"));
        const uint32_t file = Open("F");
        ASSERT_TRUE(Put(file, "another", ""));
        const uint32_t records = length == 22 ? 1 : 2;
        const auto alpha = static_cast<uint32_t>(StoredHeader("F").Alpha) + 10;
        const std::array<uint32_t, 9> words = {0, version, 512, 99, 7, 3, records, alpha, 0};
        for (uint32_t size = 0; size <= 40; size += 2) {
            std::array<uint32_t, 10> record;
            record.fill(kUnset);
            record[0] = size;
            ASSERT_TRUE(Run([&](StatusRecord* status) {
                return QXGetFileHeader(file, reinterpret_cast<FileHeaderRecord*>(record.data()), status);
            }));
            EXPECT_EQ(record[0], size);
            for (uint32_t word = 1; word < record.size(); ++word) {
                const bool filled = word < words.size() && size >= 4 * (word + 1);
                EXPECT_EQ(record[word], filled ? words[word] : kUnset) << "size " << size << ", word " << word;
            }
        }
        EXPECT_TRUE(Run([&](StatusRecord* status) { return QXGetFileHeader(file, nullptr, status); }));
        EXPECT_TRUE(Close(file));
    }
}

TEST_F(FileCalls, FlushGoesOnAfterAFailureAndTellsTheFirst) {
    const uint32_t first = CreateAndOpen("A", FixedFile(1, 256));
    const uint32_t second = CreateAndOpen("B", FixedFile(1, 256));
    const auto flushes = [&] {
        const uint64_t before = Faults.Count(Call::Flush);
        Flush();
        return Faults.Count(Call::Flush) - before;
    };
    EXPECT_EQ(flushes(), 0U) << "nothing was written";
    const auto writeBoth = [&] {
        for (const uint32_t file : {first, second}) {
            ASSERT_TRUE(Put(file, "k", LongData() + std::to_string(Faults.CountAll())));
            ASSERT_TRUE(Put(file, "small", std::to_string(Faults.CountAll())));
        }
    };
    writeBoth();
    EXPECT_EQ(flushes(), 4U);
    EXPECT_EQ(flushes(), 0U);
    writeBoth();
    Faults.Fail(Call::Flush, 2);  // the first file's overflow file
    EXPECT_EQ(flushes(), 4U);
    EXPECT_EQ(LastStatus(), (Status{104, 2, 0}));
    ExpectNothingHeld();
    writeBoth();
    Faults.Fail(Call::Flush, 1, qx::SystemError::Other, true);
    EXPECT_EQ(flushes(), 2U) << "a file whose primary file could not be flushed is given up";
    EXPECT_EQ(LastStatus(), (Status{104, 1, 0}));
    ExpectNothingHeld();
    Faults.Clear();

    // The last handle that closes flushes what is left.
    const uint64_t before = Faults.Count(Call::Flush);
    EXPECT_TRUE(Close(first));
    EXPECT_EQ(Faults.Count(Call::Flush) - before, 1U) << "the overflow file";
    Faults.Fail(Call::Flush, 1);
    EXPECT_FALSE(Close(second));
    EXPECT_EQ(LastStatus(), (Status{104, 2, 0}));
    EXPECT_FALSE(Close(second));
    EXPECT_EQ(LastStatus(), (Status{1100, 0, 0})) << "closed all the same";
}

TEST_F(FileCalls, ClosingStoresTheCounts) {
    const uint32_t file = CreateAndOpen("F", FixedFile(2, 256));
    const uint32_t other = Open("F");
    const std::string key = KeysOf(1, 2, 1)[0];
    ASSERT_TRUE(Put(file, key, "data"));
    const uint64_t empty = StoredHeader("F").Alpha;
    EXPECT_EQ(StoredHeader("F").RecordCount, 0U);
    EXPECT_TRUE(Close(other)) << "any handle that may write";
    EXPECT_EQ(StoredHeader("F").RecordCount, 1U);
    EXPECT_EQ(StoredHeader("F").Alpha, empty + key.size() + 4 + 3);
    ASSERT_TRUE(Put(file, key, "longer data"));
    EXPECT_TRUE(Close(file));
    EXPECT_EQ(StoredHeader("F").Alpha, empty + key.size() + 11 + 3);
    EXPECT_EQ(Problems("F"), "");

    const uint32_t again = Open("F");
    ASSERT_TRUE(Erase(again, key));
    Faults.Fail(Call::Write, 1);
    EXPECT_FALSE(Close(again));
    EXPECT_EQ(LastStatus(), (Status{104, 1, 1}));
    Faults.Clear();
    EXPECT_EQ(StoredHeader("F").RecordCount, 1U);
    qx_check::Options options;
    options.allowCountDrift = true;
    EXPECT_EQ(Problems("F", options), "");
    EXPECT_EQ(OpenParts(), 0);
}

// What cannot be read is told by the first call that needs it, not by the one that opens.
TEST_F(FileCalls, OpeningForgivesWhatReadingDoesNot) {
    ASSERT_TRUE(Create("F", FixedFile(1, 256)));
    const FileBytes good = ReadHashedFile(Path("F"));
    const auto expect = [&](std::string primary, const Status& told) {
        WriteWholeFile(Path("F") + ".LK", primary);
        const uint32_t file = Open("F");
        ASSERT_NE(file, kNone);
        EXPECT_FALSE(Get(file, "k"));
        EXPECT_EQ(LastStatus(), told);
        EXPECT_FALSE(Put(file, "k", ""));
        EXPECT_EQ(LastStatus(), told);
        EXPECT_FALSE(Clear(file));
        EXPECT_EQ(LastStatus(), told);
        EXPECT_FALSE(HeaderOf(file));
        EXPECT_EQ(LastStatus(), told);
        EXPECT_FALSE(GroupOfKey(file, "k"));
        EXPECT_EQ(LastStatus(), told);
        ExpectNothingHeld();
        // It becomes usable once it is mended.
        WriteWholeFile(Path("F") + ".LK", good.Primary);
        EXPECT_TRUE(Put(file, "k", "d"));
        EXPECT_TRUE(Close(file));
    };
    std::string damaged = good.Primary;
    damaged[0] = 31;
    expect(damaged, {1003, 1, 0});
    expect(good.Primary.substr(0, 31), {107, 1, 0});
    expect("", {107, 1, 0});

    // No handle for the primary file, then none for the overflow file.
    ASSERT_TRUE(Delete("F"));
    const uint32_t file = CreateAndOpen("F", FixedFile(1, 256));
    ASSERT_TRUE(Put(file, "k", LongData()));
    const auto closeIdle = [] {
        while (qx::CloseOneIdleFile()) {
        }
    };
    struct Case {
        uint64_t Nth;
        qx::SystemError Error;
        Status Told;
    };
    for (const auto& [nth, error, told] :
         {Case{1, qx::SystemError::NoHandles, {1029, 1, 0}}, Case{1, qx::SystemError::Other, {1009, 1, 0}},
          Case{2, qx::SystemError::NoHandles, {1029, 2, 0}}, Case{2, qx::SystemError::Other, {1009, 2, 0}}}) {
        closeIdle();
        Faults.Fail(Call::Open, nth, error, true);
        EXPECT_FALSE(Get(file, "k"));
        EXPECT_EQ(LastStatus(), told);
        ExpectNothingHeld();
        Faults.Clear();
        EXPECT_EQ(Get(file, "k"), LongData());
    }
    // An idle file is closed when there is no handle to spare.
    const uint32_t idle = CreateAndOpen("IDLE");
    closeIdle();
    ASSERT_TRUE(HeaderOf(idle));
    Faults.Fail(Call::Open, 1, qx::SystemError::NoHandles);
    EXPECT_EQ(Get(file, "k"), LongData());
    EXPECT_FALSE(Record(idle).PrimaryPart.Cached.IsOpen());
    Faults.Clear();

    // A missing overflow file is made only by a call that wants a frame.
    std::filesystem::remove(Path("F") + ".OV");
    closeIdle();
    EXPECT_FALSE(Get(file, "k"));
    EXPECT_EQ(LastStatus(), (Status{1009, 2, 0}));
    const uint32_t fresh = CreateAndOpen("G", FixedFile(1, 256));
    std::filesystem::remove(Path("G") + ".OV");
    EXPECT_TRUE(Put(fresh, "k", LongData()));
    EXPECT_EQ(Get(fresh, "k"), LongData());
    EXPECT_TRUE(Close(fresh));
    EXPECT_EQ(Problems("G"), "");
}

TEST_F(FileCalls, ClearingKeepsOrDropsTheGroups) {
    enum class Hold { None, Handle, OtherHandle };
    struct Case {
        uint16_t SizeLock;
        Hold Held;
        uint32_t Modulo;  // afterwards
    };
    for (const auto& [sizeLock, hold, modulo] :
         {Case{0, Hold::None, 1}, Case{0, Hold::Handle, 3}, Case{0, Hold::OtherHandle, 3}, Case{1, Hold::None, 3},
          Case{2, Hold::None, 3}}) {
        qx_check::FileShape shape;
        shape.modulo = 3;
        shape.frameSize = 256;
        shape.sizeLock = sizeLock;
        // As full as a file may be that neither grows nor shrinks.
        std::vector<qx_check::Record> records = {{KeysOf(1, 3, 1)[0], LongData()}};
        for (const uint32_t group : {0U, 2U}) {
            records.push_back({KeysOf(group, 3, 1)[0], std::string(100, 'd')});
        }
        qx_check::BuildFile(shape, records).Save(Path("F"));
        const uint32_t file = Open("F");
        const uint32_t other = Open("F");
        EXPECT_TRUE(Get(file, records[0].key));
        if (hold != Hold::None) {
            ASSERT_TRUE(LockGroup(hold == Hold::Handle ? file : other, 0xFFFFFFFE));
        }
        EXPECT_TRUE(Clear(file));
        ExpectNothingHeld(hold == Hold::None ? 0 : 1);
        EXPECT_EQ(HeaderOf(file)->Modulo, modulo);
        EXPECT_EQ(HeaderOf(file)->RecordCount, 0U);
        EXPECT_EQ(HeaderOf(file)->Alpha, 33 + 14 * (modulo - 1));
        EXPECT_EQ(Problems("F"), "");
        const FileBytes bytes = ReadHashedFile(Path("F"));
        EXPECT_EQ(bytes.Primary.size(), 256 * modulo);
        EXPECT_EQ(bytes.Overflow, "");
        EXPECT_FALSE(Get(file, records[0].key));
        EXPECT_TRUE(Put(file, records[0].key, LongData()));
        EXPECT_TRUE(Close(file));
        EXPECT_TRUE(Close(other));
        EXPECT_EQ(Problems("F"), "");
    }
    const uint32_t file = Open("F");
    ASSERT_TRUE(HeaderOf(file));
    std::filesystem::remove(Path("F") + ".OV");
    EXPECT_TRUE(Clear(file)) << "a missing overflow file is left missing";
    EXPECT_FALSE(std::filesystem::exists(Path("F") + ".OV"));
}

// A refused delete removes neither of the two files.
TEST_F(FileCalls, AFileThatAnotherProcessHasOpenIsNotDeleted) {
    const uint32_t made = CreateAndOpen("F", FixedFile(1, 256));
    ASSERT_TRUE(Put(made, "small", "1"));
    ASSERT_TRUE(Put(made, "long", LongData()));
    ASSERT_TRUE(Close(made));
    StopLibrary();
    OtherProcess other([&](OtherProcess::Turn& turn) {
        StartLibrary();
        const uint32_t file = Open("F");
        EXPECT_EQ(Get(file, "small"), "1");
        turn.HandOver();
        EXPECT_EQ(Get(file, "long"), LongData());
        turn.HandOver();
        EXPECT_EQ(Get(file, "small"), "1");
        EXPECT_TRUE(Close(file));
        turn.HandOver();
        StopLibrary();
    });
    StartLibrary();
    const FileBytes bytes = ReadHashedFile(Path("F"));
    EXPECT_FALSE(Delete("F"));
    EXPECT_EQ(LastStatus(), (Status{104, 1, 0})) << "the other process has the primary file open";
    EXPECT_EQ(ReadHashedFile(Path("F")), bytes);
    ASSERT_TRUE(other.Continue());
    EXPECT_FALSE(Delete("F"));
    EXPECT_EQ(LastStatus(), (Status{104, 2, 0})) << "and now both";
    EXPECT_EQ(ReadHashedFile(Path("F")), bytes);
    ExpectNothingHeld();
    ASSERT_TRUE(other.Continue());
    EXPECT_TRUE(Delete("F"));
    EXPECT_FALSE(Exists("F"));
    EXPECT_TRUE(other.Finish());
}

}  // namespace
}  // namespace qx_test
