#include "number_text.h"

#include <cstdio>

namespace qx::tool {

std::string Grouped(std::uint64_t number) {
    std::string text = std::to_string(number);
    for (std::size_t i = text.size(); i > 3; i -= 3) {
        text.insert(i - 3, 1, ',');
    }
    return text;
}

std::string Counted(std::uint64_t count, const std::string& thing) {
    return Grouped(count) + ' ' + thing + (count == 1 ? "" : "s");
}

std::string OneDecimal(double number) {
    char text[64];
    std::snprintf(text, sizeof text, "%.1f", number);
    return text;
}

std::string Row(std::string_view label, const std::string& value) {
    constexpr std::size_t kWidth = 17;
    return std::string(label) + std::string(kWidth - label.size(), ' ') + value + '\n';
}

}  // namespace qx::tool
