#pragma once

#include <functional>
#include <string>
#include <vector>

#include "command.h"

namespace qx::tool {

/// Runs `body` for each of the keys of the file `name`, also after one has failed; it returns whether there is such a
/// record. Keys that are not found and failed calls are told. Returns the highest status.
ExitStatus ForEachKey(const std::string& name, const std::vector<std::string>& keys,
                      const std::function<bool(const std::string& key)>& body);

}  // namespace qx::tool
