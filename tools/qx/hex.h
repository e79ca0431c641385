#pragma once

#include <string>
#include <string_view>

namespace qx::tool {

/// Two digits a byte, capitals.
void AppendHex(std::string& text, char byte);
std::string ToHex(std::string_view bytes);

/// The bytes that digits in either case stand for. Throws WrongUse.
std::string FromHex(std::string_view digits);

}  // namespace qx::tool
