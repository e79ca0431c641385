#include "file_scan.h"

#include <qx.h>

#include "interrupt.h"

namespace qx::tool {

namespace {

constexpr std::uint32_t kNumberOfGroups = 0xFFFFFFFE;  // for QXLockGroup: keeps it still

}  // namespace

FileScan::FileScan(File& file) : file_(file), verification_(file.Verify()) {
    if (!HasGroups()) {
        return;
    }
    if (FileDamage()) {
        // The verification keeps nothing still then.
        StatusRecord status{};
        if (QXLockGroup(file.Handle(), kNumberOfGroups, 0, &status) == 0) {
            throw Error(status);
        }
        held_ = true;
    }
    header_ = file.Header();
}

FileScan::~FileScan() {
    if (held_) {
        StatusRecord ignored;
        QXUnlockGroup(file_.Handle(), kNumberOfGroups, &ignored);
    }
}

bool FileScan::HasGroups() const {
    if (!FileDamage()) {
        return true;
    }
    // Damage of the list of free frames leaves the groups alone, unless it is where every group's check begins.
    const auto& [number, fields] = *FileDamage();
    return number == 12 || ((number == 5 || number == 11) && fields != std::vector<std::string>{"0"});
}

void FileScan::ForEachGroup(ProgressLine& progress,
                            const std::function<void(std::uint32_t group, const GroupVerification& result)>& body) {
    for (std::uint32_t group = 0; group < header_.Modulo; ++group) {
        if (InterruptRequested()) {
            throw Interrupted();
        }
        body(group, verification_.Group(group));
        progress.Show(group + std::uint64_t{1}, group + std::uint64_t{1}, header_.Modulo);
    }
}

}  // namespace qx::tool
