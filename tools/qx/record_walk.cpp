#include "record_walk.h"

#include <cstdint>

#include "interrupt.h"

namespace qx::tool {

void ForEachRecord(HashedFile& file, ProgressLine& progress, const RecordVisitor& visit) {
    const std::uint64_t total = file->Header().RecordCount;
    std::uint64_t seen = 0;
    std::string record;
    for (const std::string_view key : file->Keys()) {
        if (InterruptRequested()) {
            throw Interrupted();
        }
        if (file->Read(key, record)) {
            visit(key, record);
        }
        ++seen;
        progress.Show(seen, seen, total);
    }
}

}  // namespace qx::tool
