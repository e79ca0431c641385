#include "hex.h"

#include <charconv>

#include "command.h"
#include "messages.h"

namespace qx::tool {

std::string ToHex(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string digits;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        digits += kDigits[byte >> 4];
        digits += kDigits[byte & 15];
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
