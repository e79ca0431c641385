#include "remote/server_route.h"

#include "runtime/status.h"
#include "volume/parameter_file.h"

namespace qx {

ServerRoute RouteOf(const CanonicalPath& path) {
    Parameters parameters;
    ReadParameterFile(path.Volume(), path.RootLength, parameters);
    const ServerEntries& entries = parameters.Server;
    const std::string name = NameOnServer(path.Path, entries);
    if (name.size() > kLongestCanonicalPath) {
        Raise(Code::BadPath);
    }
    const size_t serverEnd = name.find('\\', 2);
    ServerRoute route;
    route.Server = name.substr(2, serverEnd - 2);
    route.Pipe = entries.NamedPipeName;
    route.Port = path.Port.value_or(entries.TcpIpPort);
    route.Name = name.substr(serverEnd + 1);
    return route;
}

}  // namespace qx
