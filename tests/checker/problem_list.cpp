#include "problem_list.h"

#include <utility>

namespace qx_check {

std::string Quoted(std::string_view key) {
    constexpr size_t kShown = 40;
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string text = "\"";
    for (const char c : key.substr(0, kShown)) {
        if (c >= ' ' && c <= '~') {
            text += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            text += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]};
        }
    }
    return text + (key.size() > kShown ? "...\"" : "\"");
}

void ProblemList::Keep(std::string line) {
    ++count_;
    if (lines_.size() < maximum_) {
        lines_.push_back(std::move(line));
    }
}

std::vector<std::string> ProblemList::TakeLines() {
    if (count_ > lines_.size()) {
        lines_.push_back("and " + std::to_string(count_ - lines_.size()) + " more problems");
    }
    return std::move(lines_);
}

}  // namespace qx_check
