// Which directories of this computer lie on other computers, and what they are called there.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qx {

// A mounted directory of a server; its canonical name is the same on every computer that mounts it.
struct NetworkMount {
    std::string Directory;  // of this computer, where it is mounted; the root directory is empty
    std::string Name;       // \\SERVER\SHARE, with \dir\dir behind it when only a part of the share is mounted
    size_t RootLength = 0;  // of a name in it: up to and including the separator after the share
};

class MountTable {
  public:
    // Reads the operating system's table, one mount a line. What `host`, this computer, serves itself is not a network
    // mount, and neither is a share that has the name of another one in other letters.
    MountTable(std::string_view text, std::string_view host);

    // The mount that a directory lies on; null when that is no network mount. The directory is an absolute path
    // without links and without a separator at its end.
    const NetworkMount* MountOf(std::string_view directory) const;

    // Where a path on another computer, from its server on, leads on this one; nothing when it is not mounted here.
    std::optional<std::string> LocalPathOf(std::string_view path) const;

  private:
    struct Mount {
        std::string Directory;
        std::optional<NetworkMount> Network;
    };

    const Mount* Covering(std::string_view directory) const;

    std::vector<Mount> mounts_;
};

}  // namespace qx
