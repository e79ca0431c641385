// QXVerifyGroup: what it measures, every problem that it tells, and what it holds meanwhile.
#include <filesystem>
#include <random>
#include <set>

#include "checker/bytes.h"
#include "checker/file_builder.h"
#include "support/file_test.h"
#include "support/test_seed.h"

namespace qx_test {
namespace {

using qx_check::BuiltFile;
using qx_check::FileShape;
using qx_check::Put32;

constexpr uint32_t kFile = 0;
constexpr uint32_t kGroup = 1;
constexpr uint32_t kEnd = 2;

class Verification : public FileTest {
  protected:
    static constexpr uint32_t kModulo = 3;
    static constexpr uint32_t kFrameSize = 256;

    // Group 1: a small record, a long one over frames 1 to 5, a small one. Group 2: frame 6. Frames 7 to 79 are free,
    // more than the 61 that frame 0 can list, so frame 37 lists the lowest 31.
    BuiltFile Sample() const {
        FileShape shape;
        shape.modulo = kModulo;
        shape.frameSize = kFrameSize;
        shape.sizeLock = 2;
        for (uint32_t frame = 7; frame < 80; ++frame) {
            shape.freeFrames.push_back(frame);
        }
        return qx_check::BuildFile(shape, {{keys_[0], std::string(20, 'a')},
                                           {keys_[1], std::string(1200, 'b')},
                                           {keys_[2], std::string(30, 'c')},
                                           {other_, std::string(300, 'd')}});
    }

    uint32_t Save(const BuiltFile& file) {
        file.Save(Path("F"));
        const uint32_t handle = Open("F");
        EXPECT_NE(handle, kNone);
        return handle;
    }

    const std::vector<std::string> keys_ = KeysOf(1, kModulo, 5);
    const std::string other_ = KeysOf(2, kModulo, 1)[0];
};

TEST_F(Verification, ThreeSmallRecordsOfOneFrame) {
    const uint32_t file = CreateAndOpen("F", FixedFile(1, 512));
    for (const char* key : {"a", "b", "c"}) {
        ASSERT_TRUE(Put(file, key, "0123456789"));  // 14 bytes each
    }
    EXPECT_EQ(Verify(file, kFile), (VerifyReports{"1|512|32|512|0|0|2|4294967295|2|3|75|1|1|1", ""}));
    ExpectNothingHeld(1);
    EXPECT_EQ(Verify(file, kGroup), (VerifyReports{"0|3|0|4|438|3|", ""}));
    EXPECT_EQ(Verify(file, kEnd), (VerifyReports{"", ""}));
    ExpectNothingHeld();
    EXPECT_EQ(Verify(file, 0xFFFFFFFF), (VerifyReports{"", ""})) << "no hold is no failure";
}

TEST_F(Verification, ChainsAndListsAreMeasured) {
    const uint32_t file = Save(Sample());
    const std::string alpha = std::to_string(33 + 256 + 256);
    EXPECT_EQ(Verify(file, kFile), (VerifyReports{"3|256|32|768|20480|0|3|0|2|4|" + alpha + "|2|73|80", ""}));
    EXPECT_EQ(Verify(file, kGroup, 0), (VerifyReports{"0|0|0|1|224|0|", ""}));
    // Scans reach the third record in frame 5 at their second visit, as the long record's skip link leads there.
    EXPECT_EQ(Verify(file, kGroup, 1), (VerifyReports{"0|3|5|10|187|41|", ""}));
    EXPECT_TRUE(Verify(file, kEnd));
}

// The measures of a group, worked out from the extents of its records.
std::string Measure(const FileShape& shape, uint32_t group, const std::vector<qx_check::Record>& records,
                    const std::vector<uint32_t>& chain) {
    const uint32_t header = group == 0 ? shape.headerLength : 13;
    const size_t inOverflow = shape.frameSize - 14;
    const auto frameOf = [&](size_t byte) {
        const size_t inPrimary = shape.frameSize - header;
        return byte < inPrimary ? size_t{0} : 1 + (byte - inPrimary) / inOverflow;
    };
    uint64_t visits = 1;
    uint64_t squares = 0;
    uint64_t skipDepth = 1;
    size_t end = 0;
    for (const auto& [key, data] : records) {
        const size_t first = frameOf(end);
        const std::string keyLength = qx_check::EncodeNumber(static_cast<uint32_t>(key.size()));
        const auto length = static_cast<uint32_t>(keyLength.size() + key.size() + data.size());
        const size_t dataStart = end + qx_check::EncodeNumber(length).size() + keyLength.size() + key.size();
        end = dataStart + data.size() + 1;
        const size_t dataFrame = frameOf(dataStart - 1);
        const bool skips = frameOf(end - 1) > dataFrame + 1;
        bool plainMove = false;
        for (size_t frame = first; frame < frameOf(end); ++frame) {
            plainMove = plainMove || frame != dataFrame || !skips;
        }
        const uint64_t depth = skipDepth + frameOf(end) - first;
        visits += depth;
        squares += depth * depth;
        skipDepth += plainMove;
    }
    bool outOfOrder = false;
    for (size_t i = 0; i + 1 < chain.size(); ++i) {
        outOfOrder = outOfOrder || chain[i + 1] != chain[i] + 1;
    }
    const size_t last = frameOf(end);
    const size_t before = last == 0 ? 0 : shape.frameSize - header + (last - 1) * inOverflow;
    const size_t free = shape.frameSize - (last == 0 ? header : 14) - (end - before);
    std::string text;
    for (const uint64_t field : {uint64_t{outOfOrder}, records.size(), last, visits, free, squares}) {
        text += std::to_string(field) + '|';
    }
    return text;
}

TEST_F(Verification, MeasuresFollowFromTheRecords) {
    std::mt19937 random(static_cast<uint32_t>(TestSeed()));
    const auto below = [&random](uint32_t bound) { return static_cast<uint32_t>(random() % bound); };
    for (int round = 0; round < 300; ++round) {
        FileShape shape;
        shape.headerLength = std::array<uint8_t, 3>{22, 26, 32}[below(3)];
        shape.modulo = 1 + below(4);
        shape.frameSize = 256 + below(2) * below(300);
        shape.sizeLock = 2;
        for (uint32_t frame = 1; frame < 30; ++frame) {
            if (below(6) == 0) {
                shape.freeFrames.push_back(frame);
            }
        }
        std::vector<std::vector<qx_check::Record>> groups(shape.modulo);
        std::vector<qx_check::Record> records;
        for (uint32_t i = 0; i < 4 + below(30); ++i) {
            // Often a size with which frames of 256 bytes end where records do.
            const uint32_t size = below(3) == 0 ? below(1500) : below(2) == 0 ? 117 : below(60);
            records.push_back({"k" + std::to_string(i), std::string(size, 'd')});
            groups[GroupIn(shape.modulo, records.back().key)].push_back(records.back());
        }
        const uint32_t file = Save(qx_check::BuildFile(shape, records));
        EXPECT_EQ(Verify(file, kFile)->Problem, "");
        uint32_t frame = 0;
        for (uint32_t group = 0; group < shape.modulo; ++group) {
            const VerifyReports reports = *Verify(file, kGroup, group);
            EXPECT_EQ(reports.Problem, "");
            std::vector<uint32_t> chain;
            const size_t second = reports.Statistics.find('|', 2) + 1;
            for (int left = std::stoi(reports.Statistics.substr(second)); left > 0; --left) {
                do {
                    ++frame;
                } while (std::count(shape.freeFrames.begin(), shape.freeFrames.end(), frame) != 0);
                chain.push_back(frame);
            }
            EXPECT_EQ(reports.Statistics, Measure(shape, group, groups[group], chain));
        }
        Close(file);
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
}

constexpr uint32_t kInOverflow = 0x10000;  // marks an offset as one in the overflow file

constexpr uint32_t Ours(uint32_t position) {
    return 256 + position;
}
constexpr uint32_t InFrame(uint32_t frame, uint32_t position) {
    return kInOverflow + frame * 256 + position;
}

// Bytes put somewhere, or without bytes the file cut there; what the file check tells then, and what that of group 1.
struct Damage {
    const char* Name;
    uint32_t At;
    std::vector<uint8_t> Bytes;
    const char* File;
    const char* Group;  // null: the call fails
};

// "1|" goes on with the file's name.
const Damage kDamages[] = {
    {"file shorter than a header", 31, {}, "1|", nullptr},
    {"header length", 0, {31}, "3|0", nullptr},
    {"file too short", Ours(0), {}, "4|256|3|256", "1|"},
    {"too few groups", 9, {2}, "4|768|2|256", ""},
    {"too many groups", 9, {0xFF, 0xFF, 0xFF, 0xFF}, "4|768|4294967295|256", "7"},
    {"list frame's first byte", InFrame(0, 0), {13}, "5|0", "5|13"},
    {"chained list frame's first byte", InFrame(37, 0), {99}, "5|37", ""},
    {"list frame beyond the file", InFrame(0, 3), {200}, "11|200", ""},
    {"overflow file cut", InFrame(5, 100), {}, "11|37", "10|80|5"},
    {"free frame twice", InFrame(0, 11), {79, 0, 0, 0, 79}, "12|0", ""},
    {"free frames ascending", InFrame(37, 11), {1, 0, 0, 0, 2}, "12|37", ""},
    {"more free frames than fit", InFrame(0, 1), {63}, "12|0", ""},
    {"list in a circle", InFrame(37, 3), {37}, "12|37", ""},
    {"frame's first byte", Ours(0), {14}, "", "3|14"},
    {"overflow frame's first byte", InFrame(4, 0), {13}, "", "5|13"},
    {"key of another group", Ours(15), {'m'}, "", "7"},
    {"terminator", Ours(13 + 24), {0xFE}, "", "8|1|PRIME|1|37"},
    {"terminator in an overflow frame", InFrame(5, 33), {0}, "", "8|1|OV|5|33"},
    {"number without end", Ours(13), {0, 0, 0, 0, 0, 0}, "", "8|1|PRIME|1|18"},
    {"key longer than its record", Ours(13), {0x97, 0xFF}, "", "8|1|PRIME|1|15"},
    {"owner", InFrame(3, 9), {2}, "", "9|3|2"},
    {"link into another group", Ours(1), {6}, "", "9|6|2"},
    {"link beyond the file", Ours(1), {80}, "", "10|80|80"},
    {"overflow file empty", InFrame(0, 0), {}, "", "10|1|1"},
    {"byte behind the mark", InFrame(5, 250), {1}, "", "13|OV|5|250"},
    {"mark in the first frame", Ours(13), {0x80}, "", "14|PRIME|1"},
    {"skip link behind the mark", InFrame(5, 5), {1}, "", "14|OV|5"},
    {"forward link behind the mark", InFrame(5, 1), {1}, "", "14|OV|5"},
};

TEST_F(Verification, EveryDamageIsTold) {
    for (const Damage& damage : kDamages) {
        SCOPED_TRACE(damage.Name);
        BuiltFile built = Sample();
        std::vector<uint8_t>& bytes = damage.At < kInOverflow ? built.primary : built.overflow;
        const uint32_t at = damage.At % kInOverflow;
        if (damage.Bytes.empty()) {
            bytes.resize(at);
        }
        std::copy(damage.Bytes.begin(), damage.Bytes.end(), bytes.begin() + at);
        const uint32_t file = Save(built);
        const auto expectTold = [&](const std::optional<VerifyReports>& reports, const std::string& told) {
            ASSERT_TRUE(reports);
            EXPECT_EQ(reports->Statistics.empty(), !told.empty());
            if (told == "1|") {
                EXPECT_TRUE(reports->Problem.starts_with("1|\\\\") && reports->Problem.ends_with("\\F.LK"))
                    << reports->Problem;
            } else {
                EXPECT_EQ(reports->Problem, told);
            }
        };
        expectTold(Verify(file, kFile), damage.File);
        ExpectNothingHeld(damage.File[0] == '\0' ? 1 : 0);
        const std::optional<VerifyReports> group = Verify(file, kGroup, 1);
        if (damage.Group != nullptr) {
            expectTold(group, damage.Group);
        } else {
            EXPECT_FALSE(group);
        }
        EXPECT_TRUE(Verify(file, kEnd));
        ExpectNothingHeld();
        Close(file);
    }
}

// Frames that are full to the last byte, so that only their number tells that the group has no end.
TEST_F(Verification, AChainInACircleIsTold) {
    FileShape shape;
    shape.frameSize = 257;
    BuiltFile built = qx_check::BuildFile(shape, {{"k", std::string(500, 'd')}});
    for (uint8_t* frame : {built.primary.data(), built.overflow.data() + shape.frameSize}) {
        Put32(frame + 1, 1);
        for (uint32_t at = frame[0]; at < shape.frameSize; at += 9) {
            const uint8_t record[] = {0x87, 0x84, 'x', 'x', 'x', 'x', 'd', 'd', 0xFF};
            std::copy(std::begin(record), std::end(record), frame + at);
        }
    }
    EXPECT_EQ(Verify(Save(built), kGroup, 0), (VerifyReports{"", "9|1|0"}));
}

TEST_F(Verification, GroupsThatAreNotThereAreUnreadable) {
    const uint32_t file = Save(Sample());
    for (const uint32_t group : {3U, 0x7FFFFFFFU, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        EXPECT_TRUE(Verify(file, kGroup, group)->Problem.starts_with("1|")) << group;
        ExpectNothingHeld();
    }
}

TEST_F(Verification, TheNumberOfGroupsMayHaveBeenChangedByAnotherProcess) {
    const uint32_t file = Save(Sample());
    ASSERT_TRUE(Get(file, other_));
    FileShape shape;
    shape.modulo = 5;
    shape.frameSize = kFrameSize;
    const BuiltFile changed = qx_check::BuildFile(shape, {{"k", "d"}});
    WriteWholeFile(Path("F.LK"), {reinterpret_cast<const char*>(changed.primary.data()), changed.primary.size()});
    WriteWholeFile(Path("F.OV"), "");
    EXPECT_EQ(Verify(file, kFile)->Statistics.substr(0, 2), "5|");
    EXPECT_EQ(Verify(file, kGroup, 4)->Problem, "");
}

TEST_F(Verification, AMissingOverflowFileIsAnEmptyOne) {
    const uint32_t file = CreateAndOpen("F");
    std::filesystem::remove(Path("F.OV"));
    EXPECT_EQ(Verify(file, kFile)->Problem, "");
    EXPECT_FALSE(std::filesystem::exists(Path("F.OV")));
    EXPECT_EQ(Verify(file, kGroup)->Problem, "");
}

TEST_F(Verification, ARefusedReportIsAFailureThatLeavesNoHold) {
    const uint32_t file = Save(Sample());
    for (const uint32_t mode : {kFile, kGroup, kEnd}) {
        for (const uint32_t refused : {1U, 2U}) {
            const uint32_t errors = CountOf(qx::Counter::VerifyGroupAllocationErrors);
            RefuseCallback(2, refused, {1234, 5, 6});
            EXPECT_FALSE(Verify(file, mode, 1));
            EXPECT_EQ(LastStatus(), (Status{1234, 5, 6}));
            EXPECT_EQ(CountOf(qx::Counter::VerifyGroupAllocationErrors), errors + 1);
            ExpectNothingHeld();
        }
    }
}

// Every call that a check makes to the system may fail: that is a problem told or a failed call, and nothing stays
// behind but the hold of a file check that succeeded.
TEST_F(Verification, FailuresOfTheSystemLeaveNothingBehind) {
    std::set<uint32_t> codes;
    for (const qx::SystemError error : {qx::SystemError::Other, qx::SystemError::NoHandles}) {
        for (const uint32_t mode : {kFile, kGroup}) {
            bool delivered = true;
            for (uint64_t nth = 1; delivered; ++nth) {
                SCOPED_TRACE(testing::Message() << "mode " << mode << ", call " << nth);
                const uint32_t file = Save(Sample());
                Faults.FailAny(nth, error);
                const std::optional<VerifyReports> reports = Verify(file, mode, 1);
                delivered = Faults.Delivered();
                Faults.Clear();
                codes.insert(reports ? 0 : LastStatus()[0]);
                const bool good = reports && reports->Problem.empty();
                if (delivered && (Faults.DeliveredCall() == Call::Read || Faults.DeliveredCall() == Call::GetSize)) {
                    EXPECT_FALSE(good);
                }
                ExpectNothingHeld(mode == kFile && good ? 1 : 0);
                EXPECT_TRUE(Verify(file, kEnd));
                ExpectNothingHeld();
                EXPECT_TRUE(Close(file));
            }
        }
    }
    codes.erase(1014);  // only while the thread has no work area yet
    EXPECT_EQ(codes, (std::set<uint32_t>{0, 1012, 1027, 1029}));
}

}  // namespace
}  // namespace qx_test
