// Damages good files in every way we can think of.
#include <algorithm>
#include <fstream>
#include <functional>

#include "check_fixture.h"

namespace qx_check {
namespace {

constexpr uint32_t kFrameSize = 256;
constexpr uint32_t kModulo = 5;

// A file with chains, a long record, free frames, and (with many free frames) chained list frames.
struct Sample {
    FileShape shape;
    std::vector<Record> records = MixedRecords(40, 100, 3);
    uint32_t longGroup = GroupOfKey("long", kModulo);
    BuiltFile file;

    explicit Sample(uint32_t freeFrames = 3) {
        shape.modulo = kModulo;
        shape.frameSize = kFrameSize;
        for (uint32_t i = 0; i < freeFrames; ++i) {
            shape.freeFrames.push_back(2 + i);
        }
        records.insert(records.begin(), {"long", std::string(1200, 'd')});
        file = BuildFile(shape, records);
    }

    uint8_t* Primary(uint32_t group, size_t position = 0) {
        return file.primary.data() + group * kFrameSize + position;
    }
    uint8_t* Overflow(uint32_t frame, size_t position = 0) {
        return file.overflow.data() + frame * kFrameSize + position;
    }
    uint8_t* LongPrimary(size_t position = 0) { return Primary(longGroup, position); }
    uint32_t LongFrame(uint32_t index) {
        uint32_t frame = Get32(LongPrimary(1));
        for (uint32_t i = 0; i < index; ++i) {
            frame = Get32(Overflow(frame, 1));
        }
        return frame;
    }
    uint8_t* LastOfLong(size_t position) {
        uint32_t frame = LongFrame(0);
        while (Get32(Overflow(frame, 1)) != 0) {
            frame = Get32(Overflow(frame, 1));
        }
        return Overflow(frame, position);
    }
    uint32_t HighWater() { return Get32(Overflow(0, 7)); }
    // Just behind the last record, in the last frame of the long record's group.
    uint8_t* Mark() {
        uint8_t* mark = LastOfLong(kFrameSize - 1);
        while (*mark != 0x80) {
            --mark;
        }
        return mark;
    }
};

struct Damage {
    const char* name;
    std::function<void(Sample&)> apply;
    const char* expected;  // in one of the problems
    uint32_t freeFrames = 3;
};

constexpr uint32_t kManyFree = 100;

const std::vector<Damage>& HeaderAndGroupDamages() {
    static const std::vector<Damage> damages = {
        {"header length", [](Sample& s) { *s.Primary(0) = 30; }, "FILE.LK frame 0 position 0: first byte is 30"},
        {"empty primary file", [](Sample& s) { s.file.primary.clear(); },
         "FILE.LK frame 0 position 0: first byte is 0"},
        {"header cut off", [](Sample& s) { s.file.primary.resize(20); }, "FILE.LK: length 20 is not"},
        {"modulo 0", [](Sample& s) { Put32(s.Primary(0, 9), 0); }, "FILE.LK: length 1280 is not"},
        {"modulo too large", [](Sample& s) { Put32(s.Primary(0, 9), 6); }, "FILE.LK: length 1280 is not"},
        {"modulo huge", [](Sample& s) { Put32(s.Primary(0, 9), 0xFFFFFFFF); }, "FILE.LK: length 1280 is not"},
        {"modulo too small", [](Sample& s) { Put32(s.Primary(0, 9), 4); }, "FILE.LK: length 1280 is not"},
        {"frame size small", [](Sample& s) { Put16(s.Primary(0, 13), 14); }, "FrameSize 14 is below"},
        {"frame size other", [](Sample& s) { Put16(s.Primary(0, 13), 320); }, "FILE.LK: length 1280 is not"},
        {"frame size huge", [](Sample& s) { Put16(s.Primary(0, 26), 0xFFFF); }, "FILE.LK: length 1280 is not"},
        {"threshold", [](Sample& s) { *s.Primary(0, 19) = 24; }, "FILE.LK frame 0 position 19: Threshold 24"},
        {"primary file too long", [](Sample& s) { s.file.primary.push_back(0); }, "FILE.LK: length 1281 is not"},
        {"primary file too short", [](Sample& s) { s.file.primary.pop_back(); }, "FILE.LK: length 1279 is not"},

        {"stamp newer",
         [](Sample& s) {
             *s.Primary(2, 9) = 6;
             *s.Primary(1, 9) = 6;
         },
         "FILE.LK frame 1 position 9"},
        {"stamp older", [](Sample& s) { *s.Primary(4, 9) = 4; }, "FILE.LK frame 4 position 9: ModuloStamp 4"},
        {"link to frame 0 too early", [](Sample& s) { Put32(s.LongPrimary(1), 0); }, "position 1: ForwardLink is 0"},
        {"link beyond the file", [](Sample& s) { Put32(s.LongPrimary(1), 10000); }, "ForwardLink 10000 is not between"},
        {"chain in a circle", [](Sample& s) { Put32(s.Overflow(s.LongFrame(2), 1), s.LongFrame(0)); },
         "names a frame that is in a chain already"},
        {"frame linked to itself", [](Sample& s) { Put32(s.Overflow(s.LongFrame(0), 1), s.LongFrame(0)); },
         "names a frame that is in a chain already"},
        {"link to a free frame", [](Sample& s) { Put32(s.LongPrimary(1), 2); },
         "FILE.OV frame 2 position 0: first byte"},
        {"last frame links on", [](Sample& s) { Put32(s.LastOfLong(1), 2); }, "in the frame of the end-of-group mark"},
        {"last frame skips on", [](Sample& s) { Put32(s.LastOfLong(5), 2); }, "(the end of the chain)"},
        {"skip link of a long record", [](Sample& s) { Put32(s.LongPrimary(5), s.LongFrame(0)); },
         "(the frame of the record's terminator)"},
        {"skip link in the middle of a long record",
         [](Sample& s) { Put32(s.Overflow(s.LongFrame(0), 5), s.LongFrame(3)); }, "(ForwardLink)"},
        {"record length longer", [](Sample& s) { ++*s.LongPrimary(14 + (s.longGroup == 0 ? 19 : 0)); },
         "record terminator is"},
        {"record length without end",
         [](Sample& s) { std::fill_n(s.LongPrimary(s.longGroup == 0 ? 32 : 13), 5, uint8_t{0x7F}); },
         "Length does not fit 32 bits"},
        {"record length with a zero digit", [](Sample& s) { *s.LongPrimary(s.longGroup == 0 ? 32 : 13) = 0; },
         "Length begins with a zero digit"},
        {"key longer than its record",
         [](Sample& s) {
             uint8_t* start = s.LongPrimary(s.longGroup == 0 ? 32 : 13);
             std::copy_n("\x7F\xFF", 2, start + 2);
         },
         "is less than the record's key"},
        {"group ends early", [](Sample& s) { *s.LongPrimary(s.longGroup == 0 ? 32 : 13) = 0x80; },
         "in the frame of the end-of-group mark"},
        {"key of another group",
         [](Sample& s) {
             uint8_t* key = s.LongPrimary((s.longGroup == 0 ? 32 : 13) + 3);
             while (GroupOfKey(std::string(key, key + 4), kModulo) == s.longGroup) {
                 ++*key;
             }
         },
         "belongs to group"},
        {"key twice",
         [](Sample& s) {
             s.records.push_back({"long", "again"});
             s.file = BuildFile(s.shape, s.records);
         },
         "key \"long\" is in group"},
    };
    return damages;
}

const std::vector<Damage>& FreeListDamages() {
    static const std::vector<Damage> damages = {
        {"no entries", [](Sample& s) { Put16(s.Overflow(0, 1), 0); }, "FILE.OV frame 0 position 1: EntryCount 0"},
        {"too many entries", [](Sample& s) { Put16(s.Overflow(0, 1), 63); }, "position 1: EntryCount 63"},
        {"high water 0", [](Sample& s) { Put32(s.Overflow(0, 7), 0); }, "position 7: HighWater is 0"},
        {"high water low", [](Sample& s) { Put32(s.Overflow(0, 7), s.HighWater() - 1); }, "FILE.OV: length"},
        {"high water high", [](Sample& s) { Put32(s.Overflow(0, 7), s.HighWater() + 1); }, "FILE.OV: length"},
        {"high water huge", [](Sample& s) { Put32(s.Overflow(0, 7), 0xFFFFFFFF); }, "FILE.OV: length"},
        {"overflow file longer", [](Sample& s) { s.file.overflow.push_back(0); }, "FILE.OV: length"},
        {"overflow file shorter", [](Sample& s) { s.file.overflow.pop_back(); }, "FILE.OV: length"},
        {"overflow file of a few bytes", [](Sample& s) { s.file.overflow.resize(10); }, "is less than one frame"},
        {"overflow file emptied", [](Sample& s) { s.file.overflow.clear(); }, "ForwardLink 1 is not between 1 and 0"},
        {"overflow file not emptied",
         [](Sample& s) {
             s.shape.freeFrames.clear();
             s.records.clear();
             s.file = BuildFile(s.shape, s.records);
             s.file.overflow.assign(kFrameSize, 0);
             s.file.overflow[0] = 14;
             s.file.overflow[1] = 1;
             s.file.overflow[7] = 1;
         },
         "no frame is in use"},
        {"frame leaked", [](Sample& s) { Put16(s.Overflow(0, 1), 3); }, "frames 2 to 2 are neither in a chain nor"},
        {"free frame in a chain", [](Sample& s) { Put32(s.Overflow(0, 19), 1); }, "and in the free list"},
        {"free frame 0", [](Sample& s) { Put32(s.Overflow(0, 19), 0); }, "FILE.OV frame 0 position 19: free frame 0"},
        {"free frame beyond the file", [](Sample& s) { Put32(s.Overflow(0, 11), 9999); }, "free frame 9999 is not"},
        {"free frames ascend", [](Sample& s) { Put32(s.Overflow(0, 15), 4); }, "free frame 4 does not descend from 4"},
        {"file not cut back",
         [](Sample& s) {
             s.shape.freeFrames.push_back(s.HighWater());
             s.file = BuildFile(s.shape, s.records);
         },
         "the last frame is free"},

        {"list chain beyond the file", [](Sample& s) { Put32(s.Overflow(0, 3), 9999); }, "NextListFrame 9999",
         kManyFree},
        {"list chain in a circle",
         [](Sample& s) { Put32(s.Overflow(Get32(s.Overflow(0, 3)), 3), Get32(s.Overflow(0, 3))); }, "do not descend",
         kManyFree},
        {"list chain lost", [](Sample& s) { Put32(s.Overflow(0, 3), 0); }, "are neither in a chain nor", kManyFree},
        {"list frame's first byte", [](Sample& s) { *s.Overflow(Get32(s.Overflow(0, 3))) = 0; },
         "first byte is 0, not 14", kManyFree},
        {"list frame short of entries", [](Sample& s) { --*s.Overflow(Get32(s.Overflow(0, 3)), 1); },
         "EntryCount 30 of a chained list frame is not 31", kManyFree},
        {"list frame that is not its own", [](Sample& s) { --*s.Overflow(Get32(s.Overflow(0, 3)), 7); },
         "is not the list frame's own number", kManyFree},
        {"list frame ascends", [](Sample& s) { Put32(s.Overflow(Get32(s.Overflow(0, 3)), 11), 90); },
         "does not descend", kManyFree},
        {"frame in two list frames", [](Sample& s) { Put32(s.Overflow(0, 7 + 4 * (kManyFree - 62)), 3); },
         "is in the free list twice", kManyFree},
    };
    return damages;
}

class ByteCheckerDamage : public CheckFixture {
  protected:
    void ExpectFound(const std::vector<Damage>& damages) const {
        for (const Damage& damage : damages) {
            SCOPED_TRACE(damage.name);
            Sample sample(damage.freeFrames);
            EXPECT_EQ(AllProblems(Check(sample.file)), "");
            damage.apply(sample);
            const Report report = Check(sample.file);
            EXPECT_TRUE(report.readable);
            EXPECT_NE(AllProblems(report).find(damage.expected), std::string::npos)
                << "expected: " << damage.expected << "\nproblems:\n"
                << AllProblems(report);
        }
    }
};

TEST_F(ByteCheckerDamage, OfHeaderAndGroups) {
    ExpectFound(HeaderAndGroupDamages());
}

TEST_F(ByteCheckerDamage, OfTheFreeList) {
    ExpectFound(FreeListDamages());
}

// Every byte of a file is changed in turn. A change may go unnoticed only where the layout leaves the byte free, or
// where it gives another good file: with another key or other data.
TEST_F(ByteCheckerDamage, OfAnySingleByte) {
    Sample sample;
    const auto recordsNow = [this](Report* report) {
        std::vector<Record> found;
        *report = CheckFile(Path(), {}, [&found](std::string_view key, std::string_view data, uint32_t) {
            found.push_back({std::string(key), std::string(data)});
        });
        return found;
    };
    sample.file.Save(Path());
    Report report;
    const std::vector<Record> original = recordsNow(&report);
    ASSERT_EQ(AllProblems(report), "");

    const auto isFree = [&sample](bool primary, size_t offset, const std::vector<uint8_t>& bytes) {
        const size_t frame = offset / kFrameSize;
        const size_t position = offset % kFrameSize;
        const std::vector<uint32_t>& unused = sample.shape.freeFrames;
        if (!primary) {
            return frame == 0 ? position >= 7 + 4 * (1 + unused.size())
                              : position == 13 || std::count(unused.begin(), unused.end(), frame) != 0;
        }
        if (frame == 0) {
            return position >= 19 && position <= 21;  // Threshold, SizeLock
        }
        const uint32_t stamp = Get32(bytes.data() + frame * kFrameSize + 9);
        return position >= 9 && position <= 12 && StampAgrees(static_cast<uint32_t>(frame), stamp, kModulo);
    };
    for (const bool primary : {true, false}) {
        std::vector<uint8_t>& bytes = primary ? sample.file.primary : sample.file.overflow;
        std::fstream file(Path() + (primary ? ".LK" : ".OV"), std::ios::in | std::ios::out | std::ios::binary);
        for (size_t offset = 0; offset < bytes.size(); ++offset) {
            for (const int change : {0x01, 0x80, 0xFF}) {
                const auto put = [&file, &bytes, offset](int byte) {
                    bytes[offset] = static_cast<uint8_t>(byte);
                    file.seekp(static_cast<std::streamoff>(offset));
                    file.put(static_cast<char>(byte)).flush();
                };
                put(bytes[offset] ^ change);
                const std::vector<Record> found = recordsNow(&report);
                ASSERT_TRUE(file.good() && report.readable);
                ASSERT_TRUE(!report.Clean() || isFree(primary, offset, bytes) || found != original)
                    << (primary ? "primary" : "overflow") << " offset " << offset << " change " << change;
                put(bytes[offset] ^ change);
            }
        }
    }
}

}  // namespace
}  // namespace qx_check
