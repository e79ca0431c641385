#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <qx.hpp>
#include <string>

#include "command.h"
#include "group_count_hold.h"
#include "progress_line.h"

namespace qx::tool {

/// A check of a file as a whole and of all its groups; the number of groups stays as it is meanwhile.
class FileScan {
  public:
    explicit FileScan(File& file);

    /// What is wrong with the file as a whole.
    const std::optional<Damage>& FileDamage() const { return verification_.Damage(); }

    /// Nothing if the file is damaged.
    const FileMeasures* Measures() const { return FileDamage() ? nullptr : &verification_.Measures(); }

    /// Whether groups can be checked all the same: not unless the file has a header and the frames that go with it.
    bool HasGroups() const;

    /// Checks every group, in their order. Throws Interrupted, and Error for what is no damage.
    void ForEachGroup(ProgressLine& progress,
                      const std::function<void(std::uint32_t group, const GroupVerification& result)>& body);

    const HeaderValues& Header() const { return header_; }

  private:
    FileVerification verification_;
    HeaderValues header_;                 // known if there are groups
    std::optional<GroupCountHold> hold_;  // of a damaged file, as its verification keeps nothing still
};

/// Has `body` look through the hashed file `name`; it returns whether there is damage. Failures and interrupts are told
/// in place of the progress.
ExitStatus ScanFile(const std::string& name, const std::function<bool(FileScan& scan, ProgressLine& progress)>& body);

}  // namespace qx::tool
