#include "volume/parameter_file.h"

#include <algorithm>

#include "files/file_cache.h"
#include "runtime/status.h"

namespace qx {

namespace {

// The file while it is read.
class OpenParameterFile {
  public:
    explicit OpenParameterFile(const std::string& path)
        : result_(CacheOpenFile(path, Access::ReadOnly, Sharing::None, file_)) {}
    ~OpenParameterFile() {
        if (file_.IsOpen()) {
            CacheCloseFile(file_);
        }
    }
    OpenParameterFile(const OpenParameterFile&) = delete;
    OpenParameterFile& operator=(const OpenParameterFile&) = delete;

    FileResult Result() const { return result_; }

    std::string Text() const {
        uint32_t size = 0;
        if (!OsGetSize(file_.Handle, 1, &size)) {
            Raise(Code::ReadFailed);
        }
        std::string text(std::min<size_t>(size, kParameterTextLimit), '\0');
        if (OsRead(file_.Handle, 1, 0, text.data(), static_cast<uint32_t>(text.size())) != FileResult::Done) {
            Raise(Code::ReadFailed);
        }
        return text;
    }

  private:
    CachedFile file_;
    const FileResult result_;
};

}  // namespace

void ReadParameterFile(std::string_view volume, size_t rootLength, Parameters& parameters) {
    for (std::string_view directory = volume; !directory.empty() && directory.size() >= rootLength;
         directory = EnclosingDirectory(directory)) {
        const OpenParameterFile file(std::string(directory) + std::string(kParameterFile));
        if (file.Result() == FileResult::Exhausted) {
            Raise(Code::NoFileHandle);
        }
        if (file.Result() == FileResult::Done) {
            ApplyParameterText(file.Text(), parameters);
            return;
        }
    }
}

}  // namespace qx
