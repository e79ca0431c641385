// Messages and their bytes, written out by hand.
#include "remote/message_codec.h"

#include <gtest/gtest.h>
#include <vector>

#include "remote/messages.h"
#include "support/raised.h"
#include "support/scripted_server.h"

namespace qx_test {
namespace {

using qx::Opcode;

std::span<const uint8_t> Bytes(const std::string& text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

template <class Array>
std::string Text(const Array& bytes) {
    return {bytes.begin(), bytes.end()};
}

// The bytes of a request, from it and back to it; bytes of any other length or opcode are not that request.
template <class Request>
void ExpectRequest(const Request& request, std::string_view digits) {
    const std::string bytes = FromHex(digits);
    EXPECT_EQ(Hex(Text(qx::EncodeRequest(request))), Hex(bytes));
    const std::optional<Request> back = qx::DecodeRequest<Request>(Bytes(bytes));
    ASSERT_TRUE(back) << digits;
    EXPECT_EQ(Request::Fields(*back), Request::Fields(request)) << digits;
    std::string other = bytes;
    ++other[0];
    for (const std::string& wrong : {std::string(), bytes.substr(1), bytes + '\0', other}) {
        EXPECT_FALSE(qx::DecodeRequest<Request>(Bytes(wrong))) << digits;
    }
}

template <class Results>
void ExpectResults(const Results& results, std::string_view digits, size_t shortest) {
    const std::string bytes = FromHex(digits);
    EXPECT_EQ(Hex(Text(qx::EncodeResults(results))), Hex(bytes));
    for (size_t length = 0; length <= bytes.size(); ++length) {
        const std::string cut = bytes.substr(0, length);
        EXPECT_EQ(qx::ReceivedReply{Bytes(cut)}.As<Results>().has_value(), length >= shortest)
            << digits << " of " << length;
    }
    const std::string longer = '\x80' + bytes.substr(1) + "rest";
    const std::optional<Results> back = qx::ReceivedReply{Bytes(longer)}.As<Results>();
    ASSERT_TRUE(back);
    EXPECT_EQ(Results::Fields(*back), Results::Fields(results));
}

TEST(MessageCodec, RequestsAreOpcodeAndFields) {
    ExpectRequest(qx::GreetRequest{}, "00 03 00 00");
    ExpectRequest(qx::OpenSessionRequest{0x01020304, 0x0506, 4, {'A', 'B', 'C', 'D'}},
                  "01 04030201 0605 0400 41424344 000000000000000000000000");
    ExpectRequest(qx::SessionRequest<Opcode::CloseSession>{0xA1A2A3A4}, "02 A4A3A2A1");
    ExpectRequest(qx::GetStatisticsRequest{0xA1A2A3A4, 0x0102, 0x0304}, "03 A4A3A2A1 0201 0403");
    ExpectRequest(qx::SessionRequest<Opcode::UnlockAll>{1}, "04 01000000");
    ExpectRequest(qx::SessionRequest<Opcode::Flush>{1}, "05 01000000");
    ExpectRequest(qx::CreateFileRequest{1, 0x11121314, 0x2122, 0x31, 0x4142, 0x5152},
                  "06 01000000 14131211 2221 31 4241 5251");
    ExpectRequest(qx::SessionRequest<Opcode::DeleteFile>{1}, "07 01000000");
    ExpectRequest(qx::OpenFileRequest{1, 2, 3, 0x0405, 0x11121314, 6, 7}, "08 01000000 02 03 0504 14131211 06 07");
    ExpectRequest(qx::FileRequest<Opcode::CloseFile>{0xB1B2B3B4}, "09 B4B3B2B1");
    ExpectRequest(qx::FileRequest<Opcode::ReadPreviousKeyIdGroup>{0xB1B2B3B4}, "17 B4B3B2B1");
    ExpectRequest(qx::FileRequest<Opcode::GetGroupNumber>{0xB1B2B3B4}, "19 B4B3B2B1");
    ExpectRequest(qx::LockGroupRequest{2, 0xFFFFFFFE, 1}, "1A 02000000 FEFFFFFF 01");
    ExpectRequest(qx::UnlockGroupRequest{2, 0x01020304}, "1B 02000000 04030201");
    ExpectRequest(qx::VerifyGroupRequest{2, 1, 0x01020304}, "1C 02000000 01 04030201");
}

TEST(MessageCodec, RepliesCarryResults) {
    ExpectResults(qx::NoResults{}, "01", 1);
    ExpectResults(qx::GreetResults{3, 2, 1, {9}}, "01 03 02 01 09000000000000000000000000000000", 4);
    ExpectResults(qx::NumberResults{0x01020304}, "01 04030201", 5);
    ExpectResults(qx::GetFileHeaderResults{0x0102, 0x0304, 5, 0x0607, 0x11121314, 0x21222324, 0x31323334, 0x0809},
                  "01 0201 0403 05 0706 14131211 24232221 34333231 0908", 22);
}

TEST(MessageCodec, RepliesCarryRefusals) {
    struct Case {
        const char* Digits;
        std::optional<Status> Expected;
    };
    const Status words = {0x0102, 3, 0x11121314};
    for (const auto& [digits, expected] :
         {Case{"00 0201 03 14131211", words}, Case{"00 0201 03 14131211 55", words},
          Case{"00 0201 03 141312", Status{0x0102, 3, 0}}, Case{"00 0201 03", Status{0x0102, 3, 0}},
          Case{"00 0201", Status{0x0102, 0, 0}}, Case{"00 02", std::nullopt}, Case{"00", std::nullopt},
          Case{"00 0000 03 14131211", std::nullopt}}) {
        const std::string bytes = FromHex(digits);
        const qx::ReceivedReply reply{Bytes(bytes)};
        EXPECT_TRUE(reply.IsRefusal());
        const std::optional<StatusRecord> status = reply.Refusal();
        EXPECT_EQ(status.has_value(), expected.has_value()) << digits;
        EXPECT_TRUE(!status || Words(*status) == *expected) << digits;
    }
    EXPECT_FALSE(qx::ReceivedReply{}.IsRefusal());
    EXPECT_EQ(Hex(Text(qx::EncodeRefusal({0x0102, 3, 0x11121314}))), "0002010314131211");
}

TEST(MessageCodec, AValueThatDoesNotFitIsTheLargest) {
    EXPECT_EQ(qx::Saturated<uint8_t>(255), 255);
    EXPECT_EQ(qx::Saturated<uint8_t>(256), 255);
    EXPECT_EQ(qx::Saturated<uint16_t>(0xFFFFFFFF), 0xFFFF);
}

}  // namespace
}  // namespace qx_test
