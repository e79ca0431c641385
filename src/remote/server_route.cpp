#include "remote/server_route.h"

#include "runtime/status.h"
#include "volume/parameter_file.h"

namespace qx {

namespace {

// A name that is nothing but the file's own has no share.
void ReplaceShare(std::string& name, const std::string& share) {
    const size_t end = name.find('\\');
    if (end != std::string::npos) {
        name.replace(0, end, share);
    }
}

}  // namespace

ServerRoute RouteOf(const CanonicalPath& path) {
    Parameters parameters;
    ReadParameterFile(path.Volume(), path.RootLength, parameters);
    const ServerEntries& entries = parameters.Server;
    const size_t serverEnd = path.Path.find('\\', 2);
    ServerRoute route;
    route.Server = entries.ServerName.empty() ? path.Path.substr(2, serverEnd - 2) : entries.ServerName;
    route.Pipe = entries.NamedPipeName;
    route.Port = path.Port.value_or(entries.TcpIpPort);
    route.Name = path.Path.substr(serverEnd + 1);
    if (!entries.ShareName.empty()) {
        ReplaceShare(route.Name, entries.ShareName);
    }
    if (route.Server.size() + route.Name.size() + 3 > kLongestCanonicalPath) {
        Raise(Code::BadPath);
    }
    return route;
}

}  // namespace qx
