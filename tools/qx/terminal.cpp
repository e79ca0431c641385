#include "terminal.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <iostream>
#include <string>

#include "messages.h"

namespace qx::tool {

bool IsTerminal(Stream stream) {
    // The C++ library cannot ask the stream itself, but the system tells what it is connected to.
    std::error_code error;
    const std::string target =
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(static_cast<int>(stream)), error).string();
    constexpr std::array<std::string_view, 4> kTerminals = {"/dev/pts/", "/dev/tty", "/dev/console", "/dev/hvc"};
    return !error && std::any_of(kTerminals.begin(), kTerminals.end(),
                                 [&](std::string_view terminal) { return target.starts_with(terminal); });
}

bool Confirm(std::string_view question) {
    WriteError(std::string(question) + " [y/N] ");
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace qx::tool
