#include "command.h"

#include <filesystem>
#include <qx.hpp>

#include "messages.h"

namespace qx::tool {

namespace {

/// Names are often completed by the shell, which finds the two files that make up a hashed file.
std::string Hint(const std::string& name, const Error& error) {
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
    } catch (const std::filesystem::filesystem_error& error) {
        Complain(name + ": " + error.code().message());
    }
    return ExitStatus::Failure;
}

}  // namespace qx::tool
