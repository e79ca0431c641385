#pragma once

#include <cstdint>
#include <qx.hpp>
#include <string>
#include <string_view>

namespace qx::tool {

/// Writes to standard error. Everything goes there this way: std::cerr would flush standard output, and lose its
/// errors.
void WriteError(std::string_view text);

/// Writes a line to standard error: "qx: " and the text.
void Complain(std::string_view text);

/// The code of an Error: there is no hashed file of the name.
constexpr std::uint32_t kNoSuchFile = 231;

/// A failed call in words: "The hashed file does not exist. (code 231)".
std::string Describe(const qx::Error& error);

/// Bytes in a form that fits into a line and leaves a terminal alone: in double quotes, whatever is not printable ASCII
/// as \xNN, and of many bytes only the first.
std::string Quoted(std::string_view bytes);

}  // namespace qx::tool
