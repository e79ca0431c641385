#include "volume_place.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

#include "files/mount_table.h"
#include "platform/ascii_case.h"
#include "volume/parameter_text.h"

namespace qx::tool {

namespace fs = std::filesystem;

namespace {

std::string ReadSystemText(const char* path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// As the library names this computer.
std::string HostName() {
    constexpr std::size_t kLongest = 15;
    const std::string full = ReadSystemText("/proc/sys/kernel/hostname");
    return UpperCase(std::string_view(full).substr(0, std::min(full.find_first_of(".\n"), kLongest)));
}

}  // namespace

Place PlaceOf(const std::string& directory) {
    const fs::path path = fs::canonical(directory);
    if (!fs::is_directory(path)) {
        throw fs::filesystem_error("no directory", path, std::make_error_code(std::errc::not_a_directory));
    }
    const std::string within = path == "/" ? "" : path.string();
    const std::string host = HostName();
    const MountTable mounts(ReadSystemText("/proc/self/mountinfo"), host);
    Place place{within + '/', "\\\\" + host + within + '\\'};
    if (const NetworkMount* mount = mounts.MountOf(within)) {
        place.Name = mount->Name + within.substr(mount->Directory.size()) + '\\';
        place.RootLength = mount->Directory.size() + 1;
    }
    std::replace(place.Name.begin(), place.Name.end(), '/', '\\');
    return place;
}

ParameterFile FindParameterFile(const Place& place) {
    ParameterFile found;
    for (std::string_view directory = place.Directory; directory.size() >= place.RootLength;
         directory = EnclosingDirectory(directory)) {
        const std::string path = std::string(directory) + std::string(kParameterFile);
        std::error_code error;
        if (!fs::exists(path, error)) {
            continue;
        }
        std::ifstream file(path, std::ios::binary);
        if (!fs::is_regular_file(path, error) || !file) {
            found.PassedOver.push_back(path);
            continue;
        }
        std::ostringstream text;
        text << file.rdbuf();
        found.Path = path;
        found.Text = text.str();
        break;
    }
    return found;
}

}  // namespace qx::tool
