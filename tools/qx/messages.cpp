#include "messages.h"

#include <cstdio>

#include "hex.h"
#include "number_text.h"

namespace qx::tool {

void WriteError(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

void Complain(std::string_view text) {
    // One piece, so that the lines of several processes on one terminal stay whole.
    std::string line = "qx: ";
    line.append(text);
    line += '\n';
    WriteError(line);
}

std::string Describe(const qx::Error& error) {
    return std::string(error.what()) + " (code " + std::to_string(error.Code()) + ")";
}

std::string Quoted(std::string_view bytes) {
    constexpr std::size_t kMostShown = 80;
    std::string text = "\"";
    for (const char c : bytes.substr(0, kMostShown)) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            text += '\\';
            text += c;
        } else if (byte >= 0x20 && byte <= 0x7E) {
            text += c;
        } else {
            text += "\\x";
            AppendHex(text, c);
        }
    }
    text += '"';
    if (bytes.size() > kMostShown) {
        text += "... (" + Counted(bytes.size(), "byte") + ")";
    }
    return text;
}

}  // namespace qx::tool
