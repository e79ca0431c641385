#include "file_scan.h"

#include "hashed_file.h"
#include "interrupt.h"
#include "long_job.h"

namespace qx::tool {

FileScan::FileScan(File& file) : verification_(file.Verify()) {
    if (!HasGroups()) {
        return;
    }
    if (FileDamage()) {
        hold_.emplace(file);
    }
    header_ = file.Header();
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

ExitStatus ScanFile(const std::string& name, const std::function<bool(FileScan& scan, ProgressLine& progress)>& body) {
    HashedFile file(name, {.ReadOnly = true});
    ProgressLine progress(true, "group");
    bool damaged = false;
    const ExitStatus status = RunJob(
        progress, [&] { return name; },
        [&] {
            FileScan scan(*file);
            damaged = body(scan, progress);
        });
    return status == ExitStatus::Done && damaged ? ExitStatus::NotFound : status;
}

}  // namespace qx::tool
