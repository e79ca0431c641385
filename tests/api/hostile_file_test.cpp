// Files that are damaged or were made to do damage: every call gives a clear answer, in bounded time and memory.
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
    static void Fill(uint8_t* at, std::initializer_list<int> bytes) {
        for (const int byte : bytes) {
            *at++ = static_cast<uint8_t>(byte);
        }
    }

    uintmax_t SizeOf(const char* extension) const {
        std::error_code missing;
        const uintmax_t size = std::filesystem::file_size(Path("F") + extension, missing);
        return missing ? 0 : size;
    }

    const std::vector<std::string> keys_ = KeysOf(kGroup, kModulo, 5);
    const std::string other_ = KeysOf(2, kModulo, 1)[0];
};

// The first byte of group 1's records: Length 0x83 + key, and so on.
constexpr uint32_t kFirstRecord = 13;

TEST_F(HostileFile, EveryDamageIsTold) {
    struct Damage {
        const char* Name;
        std::function<void(BuiltFile&)> Apply;
        std::set<Status> Told;  // by calls on the last key of group 1
    };
    // A group of whole frames full of records, so that nothing but the count of frames tells that it has no end.
    const auto circle = [](BuiltFile& file) {
        for (const uint32_t start : {13U, 14U}) {
            uint8_t* frame = start == 13 ? Primary(file, kGroup, 0) : Overflow(file, 1, 0);
            Put32(frame + 1, 1);
            Put32(frame + 5, 1);
            for (uint32_t at = start; at < kFrameSize;) {
                const uint32_t size = at + 12 == kFrameSize ? 12 : 11;
                frame[at] = static_cast<uint8_t>(0x80 + size - 2);
                frame[at + 1] = 0x84;
                std::fill_n(frame + at + 2, size - 3, uint8_t{'x'});
                frame[at + size - 1] = 0xFF;
                at += size;
            }
        }
    };
    const Damage damages[] = {
        {"header length", [](BuiltFile& f) { f.primary[0] = 31; }, {{1003, 1, 0}}},
        {"frame size 0", [](BuiltFile& f) { Put16(&f.primary[13], 0); }, {{1003, 1, 0}}},
        {"frame size below the header", [](BuiltFile& f) { Put16(&f.primary[13], 32); }, {{1003, 1, 0}}},
        {"frame size above the file", [](BuiltFile& f) { Put16(&f.primary[26], 0xFFFF); }, {{1003, 1, 0}}},
        {"no groups", [](BuiltFile& f) { Put32(&f.primary[9], 0); }, {{1003, 1, 0}}},
        {"too many groups",
         [](BuiltFile& f) { Put32(&f.primary[9], 0xFFFFFFFF); },
         {{107, 1, GroupIn(0xFFFFFFFF, keys_[2]) + 1}, {107, 1, GroupIn(0xFFFFFFFF, keys_[4]) + 1}}},
        {"primary file cut to its header", [](BuiltFile& f) { f.primary.resize(32); }, {{1003, 1, 0}}},
        {"primary file cut in its header", [](BuiltFile& f) { f.primary.resize(31); }, {{107, 1, 0}}},
        {"primary file cut after group 0", [](BuiltFile& f) { f.primary.resize(kFrameSize); }, {{107, 1, 2}}},
        {"primary file cut within group 1", [](BuiltFile& f) { f.primary.resize(2 * kFrameSize - 1); }, {{107, 1, 2}}},
        {"primary frame's first byte", [](BuiltFile& f) { *Primary(f, kGroup, 0) = 14; }, {{1003, 1, 2}}},
        {"overflow frame's first byte", [](BuiltFile& f) { *Overflow(f, 5, 0) = 13; }, {{1003, 2, 2}}},
        {"owner", [](BuiltFile& f) { Put32(Overflow(f, 5, 9), 2); }, {{126, 2, 2}}},
        {"link beyond the file", [](BuiltFile& f) { Put32(Primary(f, kGroup, 5), 99); }, {{107, 2, 2}}},
        {"link far beyond the file", [](BuiltFile& f) { Put32(Primary(f, kGroup, 5), 0xFFFFFFFF); }, {{107, 2, 2}}},
        {"link into another group", [](BuiltFile& f) { Put32(Primary(f, kGroup, 5), 6); }, {{126, 2, 2}}},
        {"link to the free list", [](BuiltFile& f) { Put32(Primary(f, kGroup, 5), 7); }, {{1003, 2, 2}}},
        {"no link", [](BuiltFile& f) { Put32(Primary(f, kGroup, 5), 0); }, {{125, 2, 2}}},
        {"chain in a circle", circle, {{126, 2, 2}}},
        {"overflow file empty", [](BuiltFile& f) { f.overflow.clear(); }, {{125, 2, 2}}},
        {"overflow file cut", [](BuiltFile& f) { f.overflow.resize(5 * kFrameSize + 100); }, {{107, 2, 2}}},
        {"terminator", [](BuiltFile& f) { *Primary(f, kGroup, kFirstRecord + 24) = 0xFE; }, {{127, 2, 2}}},
        {"length of all bits",
         [](BuiltFile& f) {
             Fill(Primary(f, kGroup, kFirstRecord), {0x0F, 0x7F, 0x7F, 0x7F, 0xFF, 0x82});
         },
         {{125, 2, 2}}},
        {"length of more bits",
         [](BuiltFile& f) {
             Fill(Primary(f, kGroup, kFirstRecord), {0x1F, 0x7F, 0x7F, 0x7F, 0xFF});
         },
         {{127, 2, 2}}},
        {"length beyond the file",
         [](BuiltFile& f) {
             Fill(Primary(f, kGroup, kFirstRecord), {0x7F, 0xFF, 0x82});
         },
         {{125, 2, 2}}},
        {"number without end",
         [](BuiltFile& f) {
             Fill(Primary(f, kGroup, kFirstRecord), {0, 0, 0, 0, 0, 0, 0});
         },
         {{127, 2, 2}}},
        {"key longer than its record",
         [](BuiltFile& f) {
             Fill(Primary(f, kGroup, kFirstRecord), {0x97, 0xFF});
         },
         {{127, 2, 2}}},
    };
    BuiltFile healthy = Sample();
    healthy.Save(Path("G"));
    const uint32_t bystander = Open("G");
    for (const auto& [name, apply, told] : damages) {
        SCOPED_TRACE(name);
        BuiltFile file = Sample();
        apply(file);
        const auto expect = [&](const char* call, auto&& work) {
            file.Save(Path("F"));
            const uint32_t handle = Open("F");
            ASSERT_NE(handle, kNone);
            EXPECT_FALSE(work(handle)) << call;
            EXPECT_EQ(told.count(LastStatus()), 1U) << call << ": " << testing::PrintToString(LastStatus());
            ExpectNothingHeld();
            // A group that looks intact stays of use.
            Get(handle, other_);
            EXPECT_TRUE(Clear(handle) || told.count({LastStatus()}) == 1 || LastStatus() == Status({1003, 1, 1}))
                << testing::PrintToString(LastStatus());
            ExpectNothingHeld();
            Close(handle);
            EXPECT_LE(SizeOf(".LK"), 3 * kFrameSize);
            EXPECT_LE(SizeOf(".OV"), 16 * kFrameSize);
        };
        expect("read", [&](uint32_t handle) { return Get(handle, keys_[2]).has_value(); });
        expect("read a missing key", [&](uint32_t handle) { return Get(handle, keys_[4]).has_value(); });
        expect("append", [&](uint32_t handle) { return Put(handle, keys_[4], "new"); });
        expect("overwrite", [&](uint32_t handle) { return Put(handle, keys_[2], std::string(30, 'n')); });
        expect("replace", [&](uint32_t handle) { return Put(handle, keys_[2], std::string(999, 'n')); });
        expect("delete", [&](uint32_t handle) { return Erase(handle, keys_[2]); });
        ASSERT_EQ(Get(bystander, keys_[1]), std::string(1200, 'b'));
    }
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
        EXPECT_EQ(Get(handle, keys_[4]).has_value(), !inACircle);
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
                default:
                    count(Get(handle, key).has_value());
            }
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
