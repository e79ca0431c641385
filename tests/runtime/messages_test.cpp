#include "runtime/messages.h"

#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

namespace qx_test {
namespace {

constexpr uint32_t kCodes[] = {100,  102,  103,  104,  107,  111,  125,  126,  127,  129,  160,  230,  231,  411,
                               412,  414,  415,  1000, 1001, 1002, 1003, 1004, 1005, 1006, 1007, 1008, 1009, 1010,
                               1011, 1012, 1013, 1014, 1015, 1017, 1018, 1019, 1020, 1021, 1022, 1024, 1025, 1026,
                               1027, 1028, 1029, 1100, 1101, 1102, 1104, 1105, 1106, 1107, 1200, 1201, 1203};

std::string Message(const StatusRecord& status) {
    char buffer[512];
    std::memset(buffer, '#', sizeof buffer);
    const uint32_t length = QXFormatError(&status, 0, sizeof buffer, buffer);
    EXPECT_TRUE(length == 0 || std::strlen(buffer) == length);
    return std::string(buffer, length);
}

TEST(Messages, EveryCodeHasItsOwn) {
    std::set<std::string> messages;
    for (const uint32_t code : kCodes) {
        const std::string message = Message({code, 4294967295, 4294967294});
        EXPECT_GE(message.size(), 10U) << code;
        EXPECT_EQ(message.find('%'), std::string::npos) << message;
        messages.insert(message);
    }
    EXPECT_EQ(messages.size(), std::size(kCodes));
    const std::set<uint32_t> codes(std::begin(kCodes), std::end(kCodes));
    for (uint32_t code = 0; code < 3000; ++code) {
        EXPECT_EQ(Message({code, 1, 2}).empty(), !codes.contains(code)) << code;
    }
    EXPECT_EQ(Message({0xFFFFFFFF, 0, 0}), "");
}

TEST(Messages, DetailsAreWrittenOut) {
    for (const uint32_t code : {103U, 104U, 107U, 125U, 126U, 127U, 1003U, 1004U}) {
        const std::string message = Message({code, 2, 4294967295});
        EXPECT_NE(message.find(" 2"), std::string::npos) << message;
        EXPECT_NE(message.find("4294967295"), std::string::npos) << message;
    }
    for (const uint32_t code : {1001U, 1007U, 1011U, 1012U, 1013U, 1104U, 1105U, 1106U, 1107U}) {
        EXPECT_NE(Message({code, 1, 987654321}).find("987654321"), std::string::npos) << code;
    }
}

TEST(Messages, NothingIsWrittenBeyondTheBuffer) {
    const StatusRecord status{107, 2, 4294967295};
    const std::string whole = Message(status);
    for (uint32_t size = 0; size <= whole.size() + 2; ++size) {
        std::vector<char> buffer(size + 1, '#');
        const uint32_t length = QXFormatError(&status, 0x409, size, buffer.data());
        EXPECT_EQ(length, size > whole.size() ? whole.size() : 0) << size;
        EXPECT_EQ(buffer[size], '#') << size;
    }
    EXPECT_EQ(QXFormatError(&status, 0, 0, nullptr), 0U);
}

}  // namespace
}  // namespace qx_test
