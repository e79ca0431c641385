// One canonical path for every file, however its name is written: \\SERVER\dir\dir\NAME.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qx {

inline constexpr size_t kLongestName = 256;           // bytes that an application may hand over
inline constexpr size_t kLongestCanonicalPath = 260;  // bytes

// The extensions of a hashed file's two files.
inline constexpr std::string_view kPrimaryExtension = ".LK";
inline constexpr std::string_view kOverflowExtension = ".OV";

struct CanonicalPath {
    std::string Path;
    size_t RootLength = 0;  // up to and including the separator after the share, or after the local computer's name
    std::optional<uint32_t> Port = std::nullopt;  // that the name gave with its server

    // The volume: everything up to and including the last separator.
    std::string_view Volume() const { return std::string_view(Path).substr(0, Path.rfind('\\') + 1); }
    std::string_view FileName() const { return std::string_view(Path).substr(Path.rfind('\\') + 1); }
};

// What a name that ends with a separator is: no name of a file, or that of a volume, whose file name is empty.
enum class PathEnd : uint8_t { File, FileOrVolume };

// Nothing when the name leads to no path, volume and file. A directory that is mounted from another computer has its
// name there. A component keeps the case that it has on disk; one that does not exist keeps the case that it is written
// in. A name that begins with two separators names its server first. Raises 1005 when such a name has no server part,
// 1029 when there is no file handle left to look it up with, 1006 when the system does not tell what is mounted.
std::optional<CanonicalPath> MakeCanonicalPath(std::string_view name, PathEnd end = PathEnd::File);

}  // namespace qx
