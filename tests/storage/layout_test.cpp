// The layout codecs against bytes written by hand.
#include <gtest/gtest.h>
#include <initializer_list>
#include <vector>

#include "storage/layout/file_header.h"
#include "storage/layout/frame_header.h"
#include "storage/layout/free_list_frame.h"
#include "storage/layout/variable_number.h"

namespace qx {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kOther = 0xEE;  // bytes that a codec must leave alone

Bytes Joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

struct HeaderCase {
    FileHeader Header;
    Bytes Tail;  // from offset 13 on
};

const std::vector<HeaderCase>& HeaderCases() {
    static const std::vector<HeaderCase> cases = {
        {{22, 0x01020304, 0xFFFF, 0xF1F2F3F4, 0xCC, 0x0102, 0}, {0xFF, 0xFF, 0xF4, 0xF3, 0xF2, 0xF1, 0xCC, 0x02, 0x01}},
        {{26, 0x01020304, 0x0400, 0xF1F2F3F4, 0xFF, 0xFFFF, 0xA1A2A3A4},
         {0x00, 0x04, 0xF4, 0xF3, 0xF2, 0xF1, 0xFF, 0xFF, 0xFF, 0xA4, 0xA3, 0xA2, 0xA1}},
        {{32, 0x01020304, 0x00B1B2B3, 0x0000A1C2F1F2F3F4, 0x19, 2, 0xA1A2A3A4},
         {0xB3, 0xB2, 0xF4, 0xF3, 0xF2, 0xF1, 0x19, 0x02, 0x00, 0xA4, 0xA3, 0xA2, 0xA1, 0xB1, 0x00, 0xC2, 0xA1, 0x00,
          0x00}},
    };
    return cases;
}

TEST(FileHeaderLayout, IsTheSameBothWaysInEveryLength) {
    const Bytes links(8, kOther);
    for (const auto& [header, tail] : HeaderCases()) {
        const Bytes stored = Joined({{header.HeaderLength}, links, {4, 3, 2, 1}, tail});
        ASSERT_EQ(stored.size(), header.HeaderLength);
        Bytes encoded(40, kOther);
        EncodeFileHeader(header, encoded.data());
        EXPECT_EQ(encoded, Joined({stored, Bytes(40 - stored.size(), kOther)}));

        // What lies behind a short header belongs to group 0's records.
        const FileHeader decoded = DecodeFileHeader(encoded.data());
        EXPECT_EQ(decoded.HeaderLength, header.HeaderLength);
        EXPECT_EQ(decoded.Modulo, header.Modulo);
        EXPECT_EQ(decoded.FrameSize, header.FrameSize);
        EXPECT_EQ(decoded.Alpha, header.Alpha);
        EXPECT_EQ(decoded.Threshold, header.Threshold);
        EXPECT_EQ(decoded.SizeLock, header.SizeLock);
        EXPECT_EQ(decoded.RecordCount, header.RecordCount);
    }
}

TEST(FileHeaderLayout, RunningFieldsAreReplacedAndNothingElse) {
    for (const auto& [header, tail] : HeaderCases()) {
        Bytes bytes(40, kOther);
        EncodeFileHeader(header, bytes.data());
        FileHeader changed = header;
        changed.Modulo = 7;
        changed.Alpha = 0x1122334455667788;
        changed.RecordCount = 9;
        changed.SizeLock = 1;
        Bytes expected(40, kOther);
        EncodeFileHeader(changed, expected.data());
        StoreRunningFields(bytes.data(), 7, 0x1122334455667788, 9, 1);
        EXPECT_EQ(bytes, expected);
    }
}

TEST(FileHeaderLayout, AlphaIsReadWithinWhatTheGroupsCanHold) {
    const auto read = [](uint8_t length, uint32_t modulo, uint64_t alpha) {
        Bytes bytes(32);
        EncodeFileHeader({length, modulo, 1024, alpha, 204, 0, 0}, bytes.data());
        return DecodeFileHeader(bytes.data()).Alpha;
    };
    EXPECT_EQ(read(32, 5, 0), 89U);
    EXPECT_EQ(read(32, 5, 88), 89U);
    EXPECT_EQ(read(32, 5, 90), 90U);
    EXPECT_EQ(read(32, 5, 5120), 5120U);
    EXPECT_EQ(read(32, 5, 5121), 5120U);
    EXPECT_EQ(read(32, 5, UINT64_MAX), 5120U);
    EXPECT_EQ(read(22, 1, 23), 33U) << "the bound takes the longest header, whatever this one's length";
    EXPECT_EQ(read(22, 5, 0x1'0000'0100), 256U) << "a short header has no high part";
}

TEST(FileHeaderLayout, OnlyHeadersThatLeaveRoomForAGroupArePlausible) {
    EXPECT_FALSE(IsPlausible({32, 0, 1024, 0, 204, 0, 0}));
    EXPECT_FALSE(IsPlausible({32, 1, 0, 0, 204, 0, 0}));
    EXPECT_FALSE(IsPlausible({32, 1, 32, 0, 204, 0, 0}));
    EXPECT_TRUE(IsPlausible({32, 1, 33, 0, 204, 0, 0}));
    EXPECT_TRUE(IsPlausible({22, 0xFFFFFFFF, 23, 0, 204, 0, 0}));
}

TEST(VariableNumber, IsTheSameBothWays) {
    const std::pair<uint32_t, Bytes> known[] = {
        {0, {0x80}},
        {1, {0x81}},
        {14, {0x8E}},
        {127, {0xFF}},
        {128, {0x01, 0x80}},
        {16383, {0x7F, 0xFF}},
        {16384, {0x01, 0x00, 0x80}},
        {2097151, {0x7F, 0x7F, 0xFF}},
        {2097152, {0x01, 0x00, 0x00, 0x80}},
        {268435455, {0x7F, 0x7F, 0x7F, 0xFF}},
        {268435456, {0x01, 0x00, 0x00, 0x00, 0x80}},
        {0xFFFFFFFF, {0x0F, 0x7F, 0x7F, 0x7F, 0xFF}},
    };
    for (const auto& [value, bytes] : known) {
        Bytes encoded(kLongestNumber);
        encoded.resize(EncodeNumber(value, encoded.data()));
        EXPECT_EQ(encoded, bytes) << value;
        EXPECT_EQ(NumberSize(value), bytes.size());
        NumberDecoder decoder;
        for (size_t i = 0; i < bytes.size(); ++i) {
            EXPECT_EQ(decoder.Take(bytes[i]), i + 1 == bytes.size());
            EXPECT_TRUE(decoder.IsSound());
        }
        EXPECT_EQ(decoder.Value(), value);
        EXPECT_EQ(decoder.Size(), bytes.size());
    }
    for (const Bytes& bytes : {Bytes{0x10, 0, 0, 0, 0x80}, Bytes{0, 0, 0, 0, 0, 0x81}}) {
        NumberDecoder decoder;
        for (const uint8_t byte : bytes) {
            decoder.Take(byte);
        }
        EXPECT_FALSE(decoder.IsSound());
    }
}

TEST(FreeListLayout, HoldsWhatFitsInTwoHalves) {
    const auto of = [](uint32_t frameSize) {
        const ListGeometry geometry(frameSize);
        return std::array{geometry.Capacity, geometry.Half, geometry.Quarter, geometry.HalfBytes};
    };
    EXPECT_EQ(of(1024), (std::array{254U, 127U, 63U, 515U}));
    EXPECT_EQ(of(256), (std::array{62U, 31U, 15U, 131U}));
    EXPECT_EQ(of(260), (std::array{62U, 31U, 15U, 131U})) << "an odd number of entries is rounded down";
    EXPECT_EQ(of(0x100000), (std::array{65534U, 32767U, 16383U, 131075U})) << "what a 16-bit count can say";
}

}  // namespace
}  // namespace qx
