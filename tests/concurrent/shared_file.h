// A file that several threads work on, and who reaches it how.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <qx.hpp>
#include <string>
#include <vector>

#include "concurrent/crew.h"
#include "support/test_library.h"

namespace qx_test {

struct FileSettings {
    uint32_t FrameSize;
    uint32_t Modulo;
    uint32_t SizeLock;  // less than 2: the number of groups may change at any time
};

inline std::ostream& operator<<(std::ostream& to, const FileSettings& settings) {
    return to << settings.Modulo << " groups, frames of " << settings.FrameSize << ", size lock " << settings.SizeLock;
}

// A session with a handle on the file; several threads may use one of these.
struct OpenedFile {
    OpenedFile(const qx::Library& library, const std::string& path) : Session(library), File(Session.OpenFile(path)) {}

    qx::Session Session;
    qx::File File;
};

using Records = std::map<std::string, std::string>;

class SharedFile {
  public:
    explicit SharedFile(const FileSettings& settings);

    // Every other caller gets the same one.
    std::shared_ptr<OpenedFile> Join();
    std::shared_ptr<OpenedFile> OpenOwn() { return std::make_shared<OpenedFile>(Library, path_); }

    const std::string& Path() const { return path_; }

    // After everybody has closed the file: it is without fault, and holds exactly `due` if that is given.
    void Check(const std::optional<Records>& due = {});

    qx::Library Library;

  private:
    TestDirectory directory_;
    const std::string path_;
    std::shared_ptr<OpenedFile> shared_;
    uint32_t joined_ = 0;
};

// Works on keys that nobody else uses and knows what they hold.
class Owner {
  public:
    Owner(Crew::Member& member, std::string name, size_t keys) : member_(member), name_(std::move(name)), keys_(keys) {}

    // One operation on one of the keys, which must agree with those before. If others clear the file, records may be
    // missing, but what is there is what was written last.
    enum class Clears { No, Yes };
    void Operate(qx::File& file, Clears clears = Clears::No);

    const Records& Due() const { return records_; }

    // Writes mostly, or deletes mostly, so that a file that may do so grows or shrinks.
    enum class Tide { None, Rising, Falling };
    void Follow(Tide tide) { tide_ = tide; }

  private:
    Crew::Member& member_;
    const std::string name_;
    const size_t keys_;
    Tide tide_ = Tide::None;
    Records records_;
};

}  // namespace qx_test
