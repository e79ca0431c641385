#include "byte_checker.h"

#include <fstream>

#include "check_fixture.h"

namespace qx_check {
namespace {

class ByteChecker : public CheckFixture {
  protected:
    // Checks that the file is clean and that exactly these records come out of it.
    Report ExpectClean(const FileShape& shape, std::vector<Record> records) const {
        const BuiltFile file = BuildFile(shape, records);
        Options options;
        options.fillCharacter = shape.fillCharacter;
        std::vector<Record> found;
        const Report report = Check(file, options, [&](std::string_view key, std::string_view data, uint32_t group) {
            found.push_back({std::string(key), std::string(data)});
            EXPECT_EQ(group, GroupOfKey(std::string(key), shape.modulo));
        });
        EXPECT_EQ(AllProblems(report), "");
        EXPECT_TRUE(report.readable);
        EXPECT_EQ(report.recordCount, records.size());
        EXPECT_EQ(report.alpha, report.header.alpha);
        std::sort(records.begin(), records.end());
        std::sort(found.begin(), found.end());
        EXPECT_TRUE(found == records);
        return report;
    }
};

TEST_F(ByteChecker, DefaultFile) {
    const BuiltFile file = BuildFile({}, {});
    std::vector<uint8_t> bytes = {0x20, 0, 0,    0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0x00, 0x04, 0x21, 0,
                                  0,    0, 0xCC, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,    0,    0x80};
    bytes.resize(1024);
    EXPECT_EQ(file.primary, bytes);
    EXPECT_TRUE(file.overflow.empty());
    const Report report = ExpectClean({}, {});
    EXPECT_EQ(report.alpha, 33U);
    EXPECT_EQ(report.highWater, 1U);
    EXPECT_EQ(report.listFrames, 0U);
}

TEST_F(ByteChecker, NumbersAndRecordSizes) {
    EXPECT_EQ(EncodeNumber(0), "\x80");
    EXPECT_EQ(EncodeNumber(127), "\xFF");
    EXPECT_EQ(EncodeNumber(128), "\x01\x80");
    EXPECT_EQ(EncodeNumber(16383), "\x7F\xFF");
    EXPECT_EQ(EncodeNumber(16384), std::string("\x01\x00\x80", 3));
    const BuiltFile file = BuildFile({}, {{"key", "0123456789"}});
    EXPECT_EQ(std::string(file.primary.begin() + 32, file.primary.begin() + 49), "\x8E\x83key0123456789\xFF\x80");
    EXPECT_EQ(Get32(file.primary.data() + 15), 33U + 16U);
}

// One record's data in every length, before a second record: each boundary of frames falls on each part of a record.
// A reader that stands behind the key must land on the terminator by the SkipLink alone.
TEST_F(ByteChecker, RecordsEndEverywhereInTheirFrames) {
    constexpr uint32_t kFrameSize = 256;
    for (const size_t keyLength : {0U, 1U, 100U, 219U, 220U, 221U, 222U, 223U, 224U}) {
        for (size_t dataLength = 0; dataLength <= 760; ++dataLength) {
            SCOPED_TRACE(testing::Message() << keyLength << " " << dataLength);
            FileShape shape;
            shape.frameSize = kFrameSize;
            const std::vector<Record> records = {{std::string(keyLength, 'k'), std::string(dataLength, 'd')},
                                                 {"next", "record"}};
            ExpectClean(shape, records);
            if (HasFailure()) {
                return;
            }
            const BuiltFile file = BuildFile(shape, records);
            const size_t keyNumber = EncodeNumber(static_cast<uint32_t>(keyLength)).size();
            const size_t length = keyNumber + keyLength + dataLength;
            size_t position = 32 + EncodeNumber(static_cast<uint32_t>(length)).size() + keyNumber + keyLength;
            const uint8_t* frame = file.primary.data();
            if (position > kFrameSize) {
                position = position - kFrameSize + 14;
                frame = file.overflow.data() + kFrameSize;
            }
            if (dataLength <= kFrameSize - position) {
                position += dataLength;
            } else {
                position = (dataLength - (kFrameSize - position)) % (kFrameSize - 14) + 14;
                frame = file.overflow.data() + size_t{Get32(frame + 5)} * kFrameSize;
            }
            if (position == kFrameSize) {
                position = 14;
                frame = file.overflow.data() + size_t{Get32(frame + 1)} * kFrameSize;
            }
            ASSERT_EQ(frame[position], 0xFF);
        }
    }
}

TEST_F(ByteChecker, FreeListsOfOneAndOfManyFrames) {
    // The last frame size has room for an odd number of entries, of which one is not used.
    for (const auto& [frameSize, capacity] : {std::pair{256, 62}, {1000, 248}, {1024, 254}, {1028, 254}}) {
        for (const auto& [free, listFrames] :
             {std::pair{1, 1U}, {capacity - 1, 1U}, {capacity, 2U}, {3 * capacity, 6U}}) {
            SCOPED_TRACE(testing::Message() << frameSize << " " << free);
            FileShape shape;
            shape.frameSize = static_cast<uint32_t>(frameSize);
            for (int i = 0; i < free; ++i) {
                shape.freeFrames.push_back(static_cast<uint32_t>(1 + i + i / 3));
            }
            std::vector<Record> records;
            for (int i = 0; i < free; ++i) {
                records.push_back({"key " + std::to_string(i), std::string(static_cast<size_t>(frameSize), 'd')});
            }
            const Report report = ExpectClean(shape, records);
            EXPECT_EQ(report.freeFrames, static_cast<uint64_t>(free));
            EXPECT_EQ(report.listFrames, listFrames);
        }
    }
}

TEST_F(ByteChecker, StampsOlderAndNewerThanTheModulo) {
    FileShape shape;
    shape.modulo = 6;
    const std::vector<Record> records = MixedRecords(60, 200, 1);
    // Growing from 5 to 6 touches groups 1, 3 and 5; shrinking from 7 to 6 touches 0, 2 and 4.
    shape.stamps = {{1, 7}, {3, 7}, {5, 7}, {2, 5}, {4, 5}};
    ExpectClean(shape, records);
    for (const auto& [group, stamp] : {std::pair<uint32_t, uint32_t>{1, 5}, {2, 7}, {5, 5}, {4, 0}, {3, 8}}) {
        FileShape wrong = shape;
        wrong.stamps = {{group, stamp}};
        EXPECT_FALSE(Check(BuildFile(wrong, records)).Clean()) << group << " " << stamp;
    }
}

TEST_F(ByteChecker, CountsMayLagWhileTheFileIsOpen) {
    FileShape shape;
    shape.frameSize = 256;
    BuiltFile file = BuildFile(shape, MixedRecords(30, 256, 2));
    const uint32_t alpha = Get32(file.primary.data() + 15);
    const auto clean = [&](int64_t alphaDrift, int64_t countDrift, const Options& options) {
        Put32(file.primary.data() + 15, static_cast<uint32_t>(alpha + alphaDrift));
        Put32(file.primary.data() + 22, static_cast<uint32_t>(30 + countDrift));
        return Check(file, options).Clean();
    };
    Options open;
    open.openProcesses = 1;
    for (const int sign : {-1, 1}) {
        EXPECT_FALSE(clean(sign, 0, {}));
        EXPECT_FALSE(clean(0, sign, {}));
        EXPECT_TRUE(clean(sign * std::min<int64_t>(512, alpha), sign * 20, open));
        EXPECT_FALSE(clean(0, sign * 21, open));
    }
    EXPECT_FALSE(clean(513, 0, open));
    Options drift;
    drift.allowCountDrift = true;
    EXPECT_TRUE(clean(1 << 30, 1 << 30, drift));
}

TEST_F(ByteChecker, ShortHeadersMayCarryTheSurplusOfTheirClamp) {
    for (const uint8_t headerLength : {uint8_t{22}, uint8_t{26}}) {
        FileShape shape;
        shape.headerLength = headerLength;
        BuiltFile file = BuildFile(shape, {{"a", "b"}});
        file.primary[15] = static_cast<uint8_t>(file.primary[15] + 32 - headerLength);
        EXPECT_TRUE(Check(file).Clean());
        ++file.primary[15];
        EXPECT_FALSE(Check(file).Clean());
        file.primary[15] = static_cast<uint8_t>(headerLength + 1);  // as of an empty file; read as 33
        EXPECT_TRUE(Check(file).Clean());
    }
}

TEST_F(ByteChecker, LeftoversOfFailedWrites) {
    FileShape shape;
    shape.frameSize = 256;
    shape.freeFrames = {3};
    BuiltFile file = BuildFile(shape, {{"a", std::string(1500, 'd')}});
    Options leaks;
    leaks.allowLeakedFrames = true;

    Put16(file.overflow.data() + 1, 1);  // the free frame is forgotten
    file.overflow.resize(file.overflow.size() + 300);
    EXPECT_FALSE(Check(file).Clean());
    const Report report = Check(file, leaks);
    EXPECT_EQ(AllProblems(report), "");
    EXPECT_EQ(report.leakedFrames, 1U);

    shape.freeFrames = {20};
    const BuiltFile notCutBack = BuildFile(shape, {{"a", std::string(1500, 'd')}});
    EXPECT_FALSE(Check(notCutBack).Clean());
    BuiltFile group = BuildFile({}, {{"a", "b"}});
    group.primary[1000] = 1;
    EXPECT_FALSE(Check(group).Clean());
    Options anyFill;
    anyFill.checkFill = false;
    EXPECT_TRUE(Check(group, anyFill).Clean());
}

TEST_F(ByteChecker, FilesThatCannotBeRead) {
    const Report missing = CheckFile(Path());
    EXPECT_FALSE(missing.readable);
    EXPECT_FALSE(missing.Clean());

    BuildFile({}, {}).Save(Path());
    std::filesystem::remove(Path() + ".OV");
    const Report half = CheckFile(Path());
    EXPECT_TRUE(half.readable);
    EXPECT_NE(AllProblems(half).find("FILE.OV: the overflow file is missing"), std::string::npos);

    std::filesystem::create_directory(Path() + ".OV");
    EXPECT_FALSE(CheckFile(Path()).readable);
}

}  // namespace
}  // namespace qx_check
