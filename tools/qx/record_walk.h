#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "hashed_file.h"
#include "progress_line.h"

namespace qx::tool {

using RecordVisitor = std::function<void(std::string_view key, const std::string& record)>;

/// Hands every record of the file over, group by group; records that are deleted before their turn are passed over.
/// Throws Interrupted.
void ForEachRecord(HashedFile& file, ProgressLine& progress, const RecordVisitor& visit);

}  // namespace qx::tool
