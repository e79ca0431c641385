// Which server a path leads to, and what the file is called there.
#pragma once

#include <cstdint>
#include <string>

#include "volume/canonical_path.h"

namespace qx {

struct ServerRoute {
    std::string Server;
    std::string Pipe;  // empty: none
    uint32_t Port = 0;
    std::string Name;  // the path without its server
};

// The route of a path, with the server and the share that the volume's parameter file puts in place of those in the
// path. Raises 1006 when the path is too long then, 1029, 107.
ServerRoute RouteOf(const CanonicalPath& path);

}  // namespace qx
