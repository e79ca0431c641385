#pragma once

#include <stdexcept>
#include <string_view>

namespace qx::tool {

/// Thrown when standard output takes no more: a full disk, or a reader that has gone.
class OutputFailure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Standard output, whose failures do not go unnoticed. SIGPIPE must be ignored.
class Output {
  public:
    void Write(std::string_view bytes);
    void WriteLine(std::string_view text);

    /// To be called when all is written: only then is it certain that it got through.
    void Finish();
};

}  // namespace qx::tool
