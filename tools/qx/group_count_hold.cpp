#include "group_count_hold.h"

#include <cstdint>
#include <qx.h>

namespace qx::tool {

namespace {

constexpr std::uint32_t kNumberOfGroups = 0xFFFFFFFE;  // where QXLockGroup takes the number of a group

}  // namespace

GroupCountHold::GroupCountHold(const File& file) : file_(file) {
    StatusRecord status{};
    if (QXLockGroup(file_.Handle(), kNumberOfGroups, 0, &status) == 0) {
        throw Error(status);
    }
}

GroupCountHold::~GroupCountHold() {
    StatusRecord ignored;
    QXUnlockGroup(file_.Handle(), kNumberOfGroups, &ignored);
}

}  // namespace qx::tool
