#include "byte_checker.h"

#include <fstream>

#include "check_fixture.h"

namespace qx_check {
namespace {

using ByteChecker = CheckFixture;

TEST_F(ByteChecker, StampsOlderAndNewerThanTheModulo) {
    FileShape shape;
    shape.modulo = 6;
    const std::vector<Record> records = MixedRecords(60, 200, 1);
    // Growing from 5 to 6 touches groups 1, 3 and 5; shrinking from 7 to 6 touches 0, 2 and 4.
    shape.stamps = {{1, 7}, {3, 7}, {5, 7}, {2, 5}, {4, 5}};
    EXPECT_EQ(AllProblems(Check(BuildFile(shape, records))), "");
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
