#include "command.h"

#include <qx.hpp>

#include "messages.h"

namespace qx::tool {

namespace {

/// Names are often completed by the shell, which finds the two files that make up a hashed file.
std::string Hint(const std::string& name, const Error& error) {
    constexpr std::uint32_t kNoSuchFile = 231;
    const bool hasExtension = name.ends_with(".LK") || name.ends_with(".OV");
    return error.Code() == kNoSuchFile && hasExtension ? " Leave out the extension " + name.substr(name.size() - 3)
                                                       : "";
}

}  // namespace

ExitStatus OnFile(const std::string& name, const std::function<ExitStatus()>& body) {
    try {
        return body();
    } catch (const Error& error) {
        Complain(name + ": " + Describe(error) + Hint(name, error));
        return ExitStatus::Failure;
    }
}

}  // namespace qx::tool
