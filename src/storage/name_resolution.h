// From a file's name, however it is written, to its path, and on to the process's records for its volume and the file.
#pragma once

#include <cstdint>
#include <string_view>

#include "runtime/session_record.h"
#include "storage/open_file.h"
#include "volume/canonical_path.h"
#include "volume/volume_record.h"

namespace qx {

enum class Existence : uint8_t { MustExist, MustNotExist };

// The path that a name leads to. Raises 1000, 1005, 1006 for the name, 1029.
CanonicalPath PathOfName(std::string_view name, PathEnd end = PathEnd::File);

// What a local path stands for. When it ends, an open-file record without handles is freed again, and a use of the
// volume without files ends.
class ResolvedFile {
  public:
    // Under the API mutex. Raises 230 or 231 for a file that exists and must not or the other way round, 1029, 1015,
    // 107 and what the first use of a volume raises.
    ResolvedFile(SessionRecord& session, uint32_t sessionHandle, const CanonicalPath& path, Existence expected);
    ~ResolvedFile();
    ResolvedFile(const ResolvedFile&) = delete;
    ResolvedFile& operator=(const ResolvedFile&) = delete;

    SessionRecord& Session;
    VolumeUse* Use = nullptr;
    OpenFile* File = nullptr;
    CounterLevels Levels;
};

// Frees an open-file record that no handle uses.
void ForgetOpenFile(OpenFile& file);

}  // namespace qx
