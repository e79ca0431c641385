#pragma once

#include <qx.hpp>
#include <string>

namespace qx::tool {

/// A hashed file opened in a session of its own, as every command that works on records wants it.
class HashedFile {
  public:
    explicit HashedFile(const std::string& name, const OpenSettings& settings = {})
        : session_(library_), file_(session_, name, settings) {}

    File& operator*() noexcept { return file_; }
    File* operator->() noexcept { return &file_; }

    /// In which the file is open.
    const Session& InSession() const noexcept { return session_; }

    /// To be called by commands that write: only then is it certain that everything is stored.
    void Close() {
        file_.Close();
        session_.Close();
        library_.Close();
    }

  private:
    Library library_;
    Session session_;
    File file_;
};

}  // namespace qx::tool
