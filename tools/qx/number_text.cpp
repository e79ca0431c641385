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

}  // namespace qx::tool
