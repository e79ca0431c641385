#pragma once

namespace qx::tool {

/// Stands between the fields of a record. The library does not know it: to it a record is plain bytes.
constexpr char kAttributeMark = '\xFE';

}  // namespace qx::tool
