// A hashed file that is open, for benchmarks that reach below the exported functions.
#pragma once

#include <fstream>
#include <optional>
#include <qx.hpp>
#include <string>

#include "own_directory.h"
#include "runtime/library_record.h"
#include "storage/file_call.h"

namespace qx {

// Of one group and without byte locks.
class RecordFile {
  public:
    explicit RecordFile(uint32_t frameSize) {
        std::ofstream(directory_.File("MOXPARAM")) << "LOCKS=FALSE\n";
        session_.CreateFile(name_, {.FrameSize = frameSize, .SizeLock = 2});
        file_.emplace(session_.OpenFile(name_));
    }

    File& Face() { return *file_; }

  private:
    const OwnDirectory directory_;
    const std::string name_ = directory_.File("RECORDS");
    Library library_;
    Session session_{library_};
    std::optional<File> file_;
};

}  // namespace qx
