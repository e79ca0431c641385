#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qx::tool {

/// Where a volume lies and how it is named.
struct Place {
    std::string Directory;       // with a separator at its end
    std::string Name;            // canonical, likewise
    std::size_t RootLength = 1;  // of the directories above, those with shorter names are not searched
};

struct ParameterFile {
    std::string Path;  // empty: there is none
    std::string Text;
    std::vector<std::string> PassedOver;  // nearer to the volume, but not to be read
};

/// Throws std::filesystem::filesystem_error when there is no such directory.
Place PlaceOf(const std::string& directory);

/// The parameter file in force: the volume's own, or the nearest above.
ParameterFile FindParameterFile(const Place& place);

}  // namespace qx::tool
