#include "files/mount_table.h"

#include <algorithm>
#include <map>

#include "platform/ascii_case.h"

namespace qx {

namespace {

// The part of `text` up to `end`, which is cut off it with what it ends with.
std::string_view Cut(std::string_view& text, char end) {
    const std::string_view part = text.substr(0, text.find(end));
    text.remove_prefix(std::min(part.size() + 1, text.size()));
    return part;
}

// A separator inside of a field is written as a backslash and three octal digits.
std::string Unescaped(std::string_view field) {
    std::string text;
    const auto isOctal = [](char c) { return c >= '0' && c <= '7'; };
    while (!field.empty()) {
        const bool isEscape = field.size() >= 4 && field[0] == '\\' && std::all_of(&field[1], &field[1] + 3, isOctal);
        text +=
            isEscape ? static_cast<char>((field[1] - '0') * 64 + (field[2] - '0') * 8 + (field[3] - '0')) : field[0];
        field.remove_prefix(isEscape ? 4 : 1);
    }
    return text;
}

// A line of the table.
struct Line {
    std::string Root;  // the part of the file system that is mounted
    std::string Directory;
    std::string_view Type;
    std::string Source;
};

Line ReadLine(std::string_view text) {
    Line line;
    for (int field = 0; field < 3; ++field) {
        Cut(text, ' ');  // numbers
    }
    line.Root = Unescaped(Cut(text, ' '));
    line.Directory = Unescaped(Cut(text, ' '));
    if (line.Directory == "/") {
        line.Directory.clear();
    }
    while (!text.empty() && Cut(text, ' ') != "-") {
        // options, any number of them
    }
    line.Type = Cut(text, ' ');
    line.Source = Unescaped(Cut(text, ' '));
    return line;
}

// What a mount is called by its server.
struct Remote {
    std::string Server;
    std::string Path;
};

// //server/share/dir, or server:/dir/dir with the address of the server in brackets if there are colons in it.
std::optional<Remote> RemoteOf(const Line& line) {
    std::string_view source = line.Source;
    Remote remote;
    if (line.Type == "cifs" || line.Type == "smb3") {
        if (!source.starts_with("//")) {
            return std::nullopt;
        }
        source.remove_prefix(2);
        remote.Server = UpperCase(Cut(source, '/'));
    } else if (line.Type == "nfs" || line.Type == "nfs4") {
        const size_t colon = source.find(':', source.starts_with('[') ? std::min(source.find(']'), source.size()) : 0);
        remote.Server = UpperCase(source.substr(0, colon));
        source.remove_prefix(std::min(remote.Server.size() + 1, source.size()));
    } else {
        return std::nullopt;
    }
    remote.Path = std::string(source) + line.Root;
    return remote;
}

// `share` gets the name of the share as its server spells it.
std::optional<NetworkMount> NetworkMountOf(const Line& line, std::string_view host, std::string* share) {
    const std::optional<Remote> remote = RemoteOf(line);
    if (!remote || remote->Server.empty() || remote->Server == host || remote->Path.find('\\') != std::string::npos) {
        return std::nullopt;
    }
    NetworkMount mount{line.Directory, "\\\\" + remote->Server, 0};
    for (std::string_view path = remote->Path; !path.empty();) {
        const std::string_view component = Cut(path, '/');
        if (component.empty()) {
            continue;
        }
        const bool isShare = mount.RootLength == 0;
        mount.Name += '\\' + (isShare ? UpperCase(component) : std::string(component));
        if (isShare) {
            mount.RootLength = mount.Name.size() + 1;
            *share = line.Type.starts_with("nfs") ? std::string(component) : UpperCase(component);
        }
    }
    return mount.RootLength == 0 ? std::nullopt : std::optional(std::move(mount));
}

bool IsWithin(std::string_view path, std::string_view directory, char separator) {
    return path.starts_with(directory) && (path.size() == directory.size() || path[directory.size()] == separator);
}

}  // namespace

MountTable::MountTable(std::string_view text, std::string_view host) {
    std::map<std::string, std::string, std::less<>> shares;  // as they are spelled, by their names
    while (!text.empty()) {
        const Line line = ReadLine(Cut(text, '\n'));
        std::string share;
        Mount& mount = mounts_.emplace_back(Mount{line.Directory, NetworkMountOf(line, host, &share)});
        if (mount.Network) {
            const std::string name = mount.Network->Name.substr(0, mount.Network->RootLength - 1);
            if (shares.emplace(name, share).first->second != share) {
                mount.Network.reset();
            }
        }
    }
}

// The one mounted deepest; of those at one place, the last one hides the others.
const MountTable::Mount* MountTable::Covering(std::string_view directory) const {
    const Mount* covering = nullptr;
    for (const Mount& mount : mounts_) {
        if (IsWithin(directory, mount.Directory, '/') &&
            (covering == nullptr || mount.Directory.size() >= covering->Directory.size())) {
            covering = &mount;
        }
    }
    return covering;
}

const NetworkMount* MountTable::MountOf(std::string_view directory) const {
    const Mount* covering = Covering(directory);
    return covering != nullptr && covering->Network ? &*covering->Network : nullptr;
}

// The server and the share are in capital letters in every canonical path; the directories of a share may differ in
// nothing but case.
std::optional<std::string> MountTable::LocalPathOf(std::string_view path) const {
    for (const bool exact : {true, false}) {
        for (const Mount& mount : mounts_) {
            if (!mount.Network || Covering(mount.Directory) != &mount) {
                continue;
            }
            const std::string& name = mount.Network->Name;
            const std::string_view same = path.substr(0, name.size());
            if ((exact ? same == name : EqualWithoutCase(same, name)) && IsWithin(path, same, '\\')) {
                std::string local = mount.Directory + std::string(path.substr(name.size()));
                std::replace(local.begin() + static_cast<std::ptrdiff_t>(mount.Directory.size()), local.end(), '\\',
                             '/');
                return local;
            }
        }
    }
    return std::nullopt;
}

}  // namespace qx
