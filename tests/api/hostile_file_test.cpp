// Files that are damaged or were made to do damage: every call gives a clear answer, in bounded time and memory. So
// does the byte checker.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <iostream>
#include <random>
#include <set>

#include "checker/bytes.h"
#include "checker/file_builder.h"
#include "support/file_test.h"
#include "support/test_seed.h"

namespace qx_test {
namespace {

using qx_check::BuiltFile;
using qx_check::Put16;
using qx_check::Put32;

constexpr uint32_t kModulo = 3;
constexpr uint32_t kFrameSize = 256;
constexpr uint32_t kGroup = 1;  // the damaged one

class HostileFile : public FileTest {
  protected:
    // Group 1: a small record, a long one over frames 1 to 5, a small one. Group 2: frame 6. Frames 7 and 8 are free.
    BuiltFile Sample() const {
        qx_check::FileShape shape;
        shape.modulo = kModulo;
        shape.frameSize = kFrameSize;
        shape.sizeLock = 2;
        shape.freeFrames = {7, 8};
        return qx_check::BuildFile(shape, {{keys_[0], std::string(20, 'a')},
                                           {keys_[1], std::string(1200, 'b')},
                                           {keys_[2], std::string(30, 'c')},
                                           {other_, std::string(300, 'd')}});
    }

    static uint8_t* Primary(BuiltFile& file, uint32_t group, uint32_t position) {
        return file.primary.data() + group * kFrameSize + position;
    }
    static uint8_t* Overflow(BuiltFile& file, uint32_t frame, uint32_t position) {
        return file.overflow.data() + frame * kFrameSize + position;
    }
    uintmax_t SizeOf(const char* extension) const {
        std::error_code missing;
        const uintmax_t size = std::filesystem::file_size(Path("F") + extension, missing);
        return missing ? 0 : size;
    }

    const std::vector<std::string> keys_ = KeysOf(kGroup, kModulo, 5);
    const std::string other_ = KeysOf(2, kModulo, 1)[0];
};

constexpr uint32_t kFirstRecord = 13;
constexpr uint32_t kInOverflow = 0x10000;  // marks an offset as one in the overflow file
constexpr uint32_t kAny = 0xABCDEF;

constexpr uint32_t Ours(uint32_t position) {
    return kGroup * kFrameSize + position;
}
constexpr uint32_t InFrame(uint32_t frame, uint32_t position) {
    return kInOverflow + frame * kFrameSize + position;
}

// Bytes put somewhere, or without bytes the file cut there.
struct Damage {
    const char* Name;
    uint32_t At;
    std::vector<uint8_t> Bytes;
    Status Told;  // by every call on the group
};

const Damage kDamages[] = {
    {"header length", 0, {31}, {1003, 1, 0}},
    {"frame size 0", 13, {0, 0}, {1003, 1, 0}},
    {"frame size below the header", 13, {32, 0}, {1003, 1, 0}},
    {"frame size above the file", 26, {0xFF, 0xFF}, {1003, 1, 0}},
    {"no groups", 9, {0, 0, 0, 0}, {1003, 1, 0}},
    {"too many groups", 9, {0xFF, 0xFF, 0xFF, 0xFF}, {107, 1, kAny}},
    {"primary file cut to its header", 32, {}, {1003, 1, 0}},
    {"primary file cut in its header", 31, {}, {107, 1, 0}},
    {"primary file cut after group 0", Ours(0), {}, {107, 1, 2}},
    {"primary file cut within group 1", Ours(255), {}, {107, 1, 2}},
    {"primary frame's first byte", Ours(0), {14}, {1003, 1, 2}},
    {"overflow frame's first byte", InFrame(5, 0), {13}, {1003, 2, 2}},
    {"owner", InFrame(5, 9), {2}, {126, 2, 2}},
    {"link beyond the file", Ours(5), {99}, {107, 2, 2}},
    {"link far beyond the file", Ours(5), {0xFF, 0xFF, 0xFF, 0xFF}, {107, 2, 2}},
    {"link into another group", Ours(5), {6}, {126, 2, 2}},
    {"link to the free list", Ours(5), {7}, {1003, 2, 2}},
    {"no link", Ours(5), {0}, {125, 2, 2}},
    {"overflow file empty", InFrame(0, 0), {}, {125, 2, 2}},
    {"overflow file cut", InFrame(5, 100), {}, {107, 2, 2}},
    {"terminator", Ours(kFirstRecord + 24), {0xFE}, {127, 2, 2}},
    {"length of all bits", Ours(kFirstRecord), {0x0F, 0x7F, 0x7F, 0x7F, 0xFF, 0x82}, {125, 2, 2}},
    {"length of more bits", Ours(kFirstRecord), {0x1F, 0x7F, 0x7F, 0x7F, 0xFF}, {127, 2, 2}},
    {"length beyond the file", Ours(kFirstRecord), {0x7F, 0xFF, 0x82}, {125, 2, 2}},
    {"number without end", Ours(kFirstRecord), {0, 0, 0, 0, 0, 0, 0}, {127, 2, 2}},
    {"key longer than its record", Ours(kFirstRecord), {0x97, 0xFF}, {127, 2, 2}},
};

// Whole frames full of records, so that nothing but the number of frames passed tells that the group has no end.
void MakeCircle(uint8_t* primary, uint8_t* overflow) {
    for (uint8_t* frame : {primary, overflow}) {
        Put32(frame + 1, 1);
        Put32(frame + 5, 1);
        for (uint32_t at = frame[0]; at < kFrameSize;) {
            const uint32_t size = at + 12 == kFrameSize ? 12 : 11;
            frame[at] = static_cast<uint8_t>(0x80 + size - 2);
            frame[at + 1] = 0x84;
            std::fill_n(frame + at + 2, size - 3, uint8_t{'x'});
            frame[at + size - 1] = 0xFF;
            at += size;
        }
    }
}

class DamagedGroup : public HostileFile {
  protected:
    void ExpectTold(const BuiltFile& file, const Status& told) {
        const std::function<bool(uint32_t)> calls[] = {
            [&](uint32_t handle) { return Get(handle, keys_[2]).has_value(); },
            [&](uint32_t handle) { return Get(handle, keys_[4]).has_value(); },
            [&](uint32_t handle) { return Put(handle, keys_[4], "new"); },
            [&](uint32_t handle) { return Put(handle, keys_[2], std::string(30, 'n')); },
            [&](uint32_t handle) { return Put(handle, keys_[2], std::string(999, 'n')); },
            [&](uint32_t handle) { return Erase(handle, keys_[2]); },
        };
        for (const auto& call : calls) {
            file.Save(Path("F"));
            const uint32_t handle = Open("F");
            ASSERT_NE(handle, kNone);
            EXPECT_FALSE(call(handle));
            Status status = LastStatus();
            status[2] = told[2] == kAny ? kAny : status[2];
            EXPECT_EQ(status, told);
            ExpectNothingHeld();
            Get(handle, other_);
            EXPECT_TRUE(Clear(handle) || LastStatus() == told || LastStatus() == (Status{1003, 1, 1}))
                << testing::PrintToString(LastStatus());
            ExpectNothingHeld();
            Close(handle);
            EXPECT_LE(SizeOf(".LK"), 3 * kFrameSize);
            EXPECT_LE(SizeOf(".OV"), 16 * kFrameSize);
        }
    }
};

TEST_F(DamagedGroup, IsToldByEveryCall) {
    Sample().Save(Path("G"));
    const uint32_t bystander = Open("G");
    for (const Damage& damage : kDamages) {
        SCOPED_TRACE(damage.Name);
        BuiltFile file = Sample();
        std::vector<uint8_t>& bytes = damage.At < kInOverflow ? file.primary : file.overflow;
        const uint32_t at = damage.At % kInOverflow;
        if (damage.Bytes.empty()) {
            bytes.resize(at);
        }
        std::copy(damage.Bytes.begin(), damage.Bytes.end(), bytes.begin() + at);
        ExpectTold(file, damage.Told);
        ASSERT_EQ(Get(bystander, keys_[1]), std::string(1200, 'b'));
    }
    BuiltFile file = Sample();
    MakeCircle(Primary(file, kGroup, 0), Overflow(file, 1, 0));
    ExpectTold(file, {126, 2, 2});
}

TEST_F(HostileFile, ARecordWithoutItsTerminatorIsNotHandedOver) {
    BuiltFile file = Sample();
    uint8_t* frame = Overflow(file, 5, 0);
    uint8_t* mark = std::find(frame + 14, frame + kFrameSize, uint8_t{0x80});
    ASSERT_EQ(mark[-1], 0xFF);
    mark[-1] = 0xFE;
    file.Save(Path("F"));
    const uint32_t handle = Open("F");
    EXPECT_EQ(Get(handle, keys_[1]), std::string(1200, 'b'));
    EXPECT_FALSE(Get(handle, keys_[2]));
    EXPECT_EQ(LastStatus(), (Status{127, 2, 2}));
    EXPECT_EQ(Record(handle).Counters.Value(qx::Counter::GfeRecordTerminationErrors), 1U);
}

// What is left of a chain behind the end-of-group mark goes back to the free list, but not for ever.
TEST_F(HostileFile, AChainBehindTheMarkIsFreed) {
    for (const bool inACircle : {false, true}) {
        BuiltFile file = Sample();
        *Primary(file, kGroup, kFirstRecord) = 0x80;
        Put32(Overflow(file, 5, 1), inACircle ? 1 : 0);
        file.Save(Path("F"));
        const uint32_t handle = Open("F");
        EXPECT_EQ(Put(handle, keys_[4], "new"), !inACircle);
        EXPECT_TRUE(!inACircle || LastStatus() == (Status{126, 2, 2}));
        ExpectNothingHeld();
        EXPECT_EQ(Get(handle, keys_[4]), "new");  // its group was complete before the chain was looked at
        EXPECT_TRUE(Close(handle));
        qx_check::Options options;
        options.allowCountDrift = true;
        options.allowLeakedFrames = inACircle;
        options.checkFill = false;
        EXPECT_EQ(Problems("F", options), "");
    }
}

TEST_F(HostileFile, RandomDamageIsSurvived) {
    std::mt19937_64 random(TestSeed());
    const auto below = [&random](size_t bound) { return static_cast<uint32_t>(random() % bound); };
    std::map<uint32_t, uint64_t> codes;
    const auto count = [&](bool good) { ++codes[good ? 0 : LastStatus()[0]]; };
    for (int round = 0; round < 4000; ++round) {
        qx_check::FileShape shape;
        shape.headerLength = std::array<uint8_t, 3>{22, 26, 32}[below(3)];
        shape.modulo = kModulo;
        shape.frameSize = kFrameSize;
        shape.sizeLock = 2;
        for (uint32_t frame = 3; frame < 3 + below(120); ++frame) {
            shape.freeFrames.push_back(frame);
        }
        std::vector<qx_check::Record> records;
        for (uint32_t i = 0; i < 12; ++i) {
            records.push_back({"k" + std::to_string(i), std::string(below(4) == 0 ? below(900) : below(40), 'd')});
        }
        BuiltFile file = qx_check::BuildFile(shape, records);
        for (uint32_t damage = below(6) + 1; damage > 0; --damage) {
            std::vector<uint8_t>& part = below(2) == 0 || file.overflow.empty() ? file.primary : file.overflow;
            // Headers and first records are worth more than the middle of data.
            const uint32_t frame = below(part.size() / kFrameSize + 1) * kFrameSize;
            const size_t at = std::min<size_t>(frame + below(below(2) == 0 ? 48 : kFrameSize), part.size() - 1);
            switch (below(8)) {
                case 0:
                    part[at] = static_cast<uint8_t>(random());
                    break;
                case 1:
                    part[at] ^= static_cast<uint8_t>(1U << below(8));
                    break;
                case 2:
                    part[at] = std::array<uint8_t, 4>{0, 0x7F, 0x80, 0xFF}[below(4)];
                    break;
                case 3:
                    Put32(&part[std::min(at, part.size() - 4)], below(10));
                    break;
                case 4:
                    Put32(&part[std::min(at, part.size() - 4)], static_cast<uint32_t>(random()));
                    break;
                case 5:
                    std::copy_n(part.begin() + below(part.size() - 8), 8, part.begin() + below(part.size() - 8));
                    break;
                case 6:
                    part[at] = 14;
                    break;
                default:
                    if (below(8) == 0) {
                        part.resize(below(part.size()) + 16);
                    }
            }
        }
        if (file.primary.size() > 21) {
            Put16(&file.primary[20], 2);  // the number of groups stays
        }
        file.Save(Path("F"));
        uint64_t delivered = 0;
        const qx_check::Report report = qx_check::CheckFile(
            Path("F"), {},
            [&](std::string_view key, std::string_view data, uint32_t) { delivered += key.size() + data.size(); });
        ASSERT_TRUE(report.readable);
        ASSERT_LE(report.problems.size(), qx_check::Options().maximumProblems + 1);
        ASSERT_LE(delivered, file.primary.size() + file.overflow.size());
        const uint32_t handle = Open("F");
        ASSERT_NE(handle, kNone);
        for (uint32_t step = 0; step < 20; ++step) {
            const std::string key = "k" + std::to_string(below(14));
            switch (below(10)) {
                case 0:
                    count(Erase(handle, key));
                    break;
                case 1:
                    count(Put(handle, key, std::string(below(1000), 'w')));
                    break;
                case 2:
                    count(Put(handle, key, std::string(below(40), 'w')));
                    break;
                case 3:
                    count(step == 19 ? Clear(handle) : HeaderOf(handle).has_value());
                    break;
                case 4:
                    count(Verify(handle, below(3), below(kModulo + 1)).has_value());
                    break;
                default:
                    count(Get(handle, key).has_value());
            }
        }
        while (Record(handle).SelectCount > 0) {
            Verify(handle, 2);
        }
        ExpectNothingHeld();
        count(Close(handle));
        ASSERT_LE(SizeOf(".LK"), 64 * kFrameSize) << "round " << round;
        ASSERT_LE(SizeOf(".OV"), 600 * kFrameSize) << "round " << round;
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
    const std::set<uint32_t> known = {0, 100, 103, 104, 107, 125, 126, 127, 129, 1003, 1004};
    for (const auto& [code, times] : codes) {
        EXPECT_EQ(known.count(code), 1U) << code;
        std::cout << code << ": " << times << '\n';
    }
}

}  // namespace
}  // namespace qx_test
