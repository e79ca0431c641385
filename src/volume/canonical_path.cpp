#include "volume/canonical_path.h"

#include <algorithm>
#include <span>
#include <vector>

#include "files/file_cache.h"
#include "platform/ascii_case.h"
#include "platform/platform.h"
#include "runtime/library_record.h"
#include "runtime/status.h"
#include "volume/parameter_text.h"

namespace qx {

namespace {

std::vector<std::string_view> Components(std::string_view path) {
    std::vector<std::string_view> components;
    while (!path.empty()) {
        const size_t end = std::min(path.find('\\'), path.size());
        components.push_back(path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return components;
}

bool IsFileName(std::string_view component) {
    return !component.empty() && component != "." && component != "..";
}

// A path taken apart. One that ends with a separator has no file.
struct Parts {
    explicit Parts(std::string_view path) : Directories(Components(path)) {
        if (!path.ends_with('\\') && !Directories.empty()) {
            File = Directories.back();
            Directories.pop_back();
        }
    }

    bool LeadSomewhere() const { return File.empty() || IsFileName(File); }

    std::vector<std::string_view> Directories;
    std::string_view File;
};

// A directory of this computer, without links and without a separator at its end; the root directory is empty.
class DirectoryWalk {
  public:
    explicit DirectoryWalk(std::string start) : path_(std::move(start)) { NormalizeRoot(); }

    void Enter(std::string_view component) {
        if (component.empty() || component == ".") {
            return;
        }
        if (component == "..") {
            if (!path_.empty()) {
                path_.resize(path_.rfind('/'));
            }
            return;
        }
        const std::string next = path_ + '/' + Stored(component, "");
        if (!thePlatform.Directories->ResolveDirectoryLink(next, &path_)) {
            path_ = next;
        }
        NormalizeRoot();
    }

    // The name as it is stored; as it is written when it is not there. Raises 1029.
    std::string Stored(std::string_view stem, std::string_view extension) const {
        const std::string directory = path_.empty() ? "/" : path_;
        std::string stored(stem);
        while (thePlatform.Directories->FindEntry(directory, stem, extension, &stored) == SystemError::NoHandles) {
            if (!CloseOneIdleFile()) {
                Raise(Code::NoFileHandle, Number(WhichFile::Primary));
            }
        }
        return stored;
    }

    const std::string& Path() const { return path_; }

  private:
    void NormalizeRoot() {
        if (std::string_view(path_) == "/") {
            path_.clear();
        }
    }

    std::string path_;
};

MountTable MountsNow() {
    std::optional<MountTable> mounts;
    for (;;) {
        const SystemError error = ReadMounts(&mounts);
        if (error == SystemError::None) {
            return *std::move(mounts);
        }
        if (error != SystemError::NoHandles) {
            Raise(Code::BadPath);
        }
        if (!CloseOneIdleFile()) {
            Raise(Code::NoFileHandle, Number(WhichFile::Primary));
        }
    }
}

// A path on this computer, which may lead to another one through a mounted directory.
std::optional<CanonicalPath> LocalPath(std::string_view name, const MountTable& mounts) {
    std::string start;
    if (!name.starts_with('\\') && !thePlatform.Directories->CurrentDirectory(&start)) {
        return std::nullopt;
    }
    const Parts parts(name);
    if (!parts.LeadSomewhere()) {
        return std::nullopt;
    }
    DirectoryWalk directory(std::move(start));
    for (const std::string_view component : parts.Directories) {
        directory.Enter(component);
    }
    const std::string stored = parts.File.empty() ? "" : directory.Stored(parts.File, kPrimaryExtension);
    if (directory.Path().find('\\') != std::string::npos) {
        return std::nullopt;  // a directory whose own name holds a separator cannot be named
    }
    const NetworkMount* mount = mounts.MountOf(directory.Path());
    CanonicalPath path{mount != nullptr ? mount->Name : "\\\\" + std::string(theLibrary.Host()),
                       mount != nullptr ? mount->RootLength : theLibrary.ComputerNameLength + 3};
    path.Path += directory.Path().substr(mount != nullptr ? mount->Directory.size() : 0) + '/' + stored;
    std::replace(path.Path.begin(), path.Path.end(), '/', '\\');
    return path;
}

// A path on another computer. Its directories can be looked up where they are mounted.
std::optional<CanonicalPath> NetworkPath(std::string_view server, std::string_view rest, const MountTable& mounts) {
    const Parts parts(rest);
    if (parts.Directories.empty() || !IsFileName(parts.Directories.front()) || !parts.LeadSomewhere()) {
        return std::nullopt;
    }
    std::string path = "\\\\" + std::string(server) + '\\' + UpperCase(parts.Directories.front()) + '\\';
    const size_t root = path.size();
    std::vector<std::string_view> kept;
    for (const std::string_view component : std::span(parts.Directories).subspan(1)) {
        if (IsFileName(component)) {
            kept.push_back(component);
        } else if (component == ".." && !kept.empty()) {
            kept.pop_back();
        }
    }
    for (const std::string_view component : kept) {
        path += component;
        path += '\\';
    }
    path += parts.File;
    if (std::optional<std::string> local = mounts.LocalPathOf(path)) {
        std::replace(local->begin(), local->end(), '/', '\\');
        return LocalPath(*local, mounts);
    }
    return CanonicalPath{std::move(path), root};
}

// Takes the port off a server that is written as server:port.
std::optional<uint32_t> TakePort(std::string& server) {
    const size_t colon = server.find(':');
    const std::optional<uint32_t> port =
        colon == std::string::npos ? std::nullopt : PortIn(std::string_view(server).substr(colon + 1));
    if (port) {
        server.resize(colon);
    }
    return port;
}

std::optional<CanonicalPath> AnyPath(std::string_view name) {
    const MountTable mounts = MountsNow();
    if (!name.starts_with("\\\\")) {
        return LocalPath(name, mounts);
    }
    const size_t serverEnd = name.find('\\', 2);
    if (serverEnd == std::string_view::npos) {
        Raise(Code::BadServerName);
    }
    std::string server = UpperCase(name.substr(2, serverEnd - 2));
    const std::optional<uint32_t> port = TakePort(server);
    const bool isHere = server == theLibrary.Host();
    if (server.empty() && !isHere) {
        Raise(Code::BadServerName);
    }
    std::optional<CanonicalPath> path =
        isHere ? LocalPath(name.substr(serverEnd), mounts) : NetworkPath(server, name.substr(serverEnd + 1), mounts);
    if (path) {
        path->Port = port;
    }
    return path;
}

}  // namespace

std::optional<CanonicalPath> MakeCanonicalPath(std::string_view name, PathEnd end) {
    if (name.empty() || name.size() > kLongestCanonicalPath || name.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    std::string separated(name);
    std::replace(separated.begin(), separated.end(), '/', '\\');
    std::optional<CanonicalPath> path = AnyPath(separated);
    if (path && (path->Path.size() > kLongestCanonicalPath || (end == PathEnd::File && path->FileName().empty()))) {
        return std::nullopt;
    }
    return path;
}

}  // namespace qx
