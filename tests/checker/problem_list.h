// What a check has found, as lines for people.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace qx_check {

enum class FileKind { Primary, Overflow };

struct Place {
    FileKind file;
    uint32_t frame;
    uint64_t position;  // within the frame
};

// The beginning of a key, fit to be printed.
std::string Quoted(std::string_view key);

class ProblemList {
  public:
    // Keeps the first `maximum` lines and counts the rest, so that a ruined file cannot fill the memory.
    ProblemList(const std::string& name, size_t maximum) : name_(name), maximum_(maximum) {}

    template <typename... Parts>
    void Add(const Place& place, const Parts&... parts) {
        std::ostringstream line;
        line << FileName(place.file) << " frame " << place.frame << " position " << place.position << ": ";
        (line << ... << parts);
        Keep(line.str());
    }

    template <typename... Parts>
    void Add(FileKind file, const Parts&... parts) {
        std::ostringstream line;
        line << FileName(file) << ": ";
        (line << ... << parts);
        Keep(line.str());
    }

    uint64_t Count() const { return count_; }
    std::vector<std::string> TakeLines();

  private:
    std::string FileName(FileKind file) const { return name_ + (file == FileKind::Primary ? ".LK" : ".OV"); }
    void Keep(std::string line);

    std::string name_;
    size_t maximum_;
    uint64_t count_ = 0;
    std::vector<std::string> lines_;
};

}  // namespace qx_check
