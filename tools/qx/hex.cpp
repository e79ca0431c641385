#include "hex.h"

#include <charconv>

#include "command.h"
#include "messages.h"

namespace qx::tool {

void AppendHex(std::string& text, char byte) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    text += kDigits[value >> 4];
    text += kDigits[value & 15];
}

std::string ToHex(std::string_view bytes) {
    std::string digits;
    for (const char byte : bytes) {
        AppendHex(digits, byte);
    }
    return digits;
}

std::string FromHex(std::string_view digits) {
    std::string bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        unsigned char byte = 0;
        const char* end = digits.data() + i + 2;
        if (i + 1 == digits.size() || std::from_chars(digits.data() + i, end, byte, 16).ptr != end) {
            throw WrongUse(Quoted(digits) + " is no key in hexadecimal: two digits a byte are needed");
        }
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

}  // namespace qx::tool
