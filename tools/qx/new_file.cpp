#include "new_file.h"

#include "messages.h"

namespace qx::tool {

NewFile::NewFile(const std::string& name, const CreateSettings& settings) : name_(name) {
    session_.CreateFile(name_, settings);
    try {
        file_.emplace(session_, name_);
    } catch (const Error&) {
        Remove();
        throw;
    }
}

NewFile::~NewFile() {
    if (!kept_) {
        Remove();
    }
}

void NewFile::Keep() {
    file_->Close();
    kept_ = true;
    session_.Close();
    library_.Close();
}

void NewFile::Remove() {
    file_.reset();
    try {
        session_.DeleteFile(name_);
        Complain(name_ + ": removed again, as it is not complete");
    } catch (const Error& error) {
        Complain(name_ + ": it is not complete and cannot be removed: " + Describe(error));
    }
}

}  // namespace qx::tool
