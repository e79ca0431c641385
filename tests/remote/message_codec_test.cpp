// Messages and their bytes, written out by hand.
#include "remote/message_codec.h"

#include <gtest/gtest.h>
#include <vector>

#include "remote/messages.h"
#include "support/raised.h"
#include "support/scripted_server.h"

namespace qx_test {
namespace {

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

// What every other request looks like is seen where it is sent.
TEST(MessageCodec, RequestsAreOpcodeAndFields) {
    ExpectRequest(qx::OpenSessionRequest{0x01020304, 0x0506, 4, {'A', 'B', 'C', 'D'}},
                  "01 04030201 0605 0400 41424344 000000000000000000000000");
    ExpectRequest(qx::LockGroupRequest{2, 0xFFFFFFFE, 1}, "1A 02000000 FEFFFFFF 01");
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

}  // namespace
}  // namespace qx_test
