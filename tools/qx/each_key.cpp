#include "each_key.h"

#include <algorithm>
#include <qx.hpp>

#include "messages.h"

namespace qx::tool {

ExitStatus ForEachKey(const std::string& name, const std::vector<std::string>& keys,
                      const std::function<bool(const std::string& key)>& body) {
    ExitStatus worst = ExitStatus::Done;
    for (const std::string& key : keys) {
        ExitStatus status = ExitStatus::Done;
        try {
            if (!body(key)) {
                Complain(name + ": " + Quoted(key) + ": not found");
                status = ExitStatus::NotFound;
            }
        } catch (const Error& error) {
            Complain(name + ": " + Quoted(key) + ": " + Describe(error));
            status = ExitStatus::Failure;
        }
        worst = std::max(worst, status);
    }
    return worst;
}

}  // namespace qx::tool
