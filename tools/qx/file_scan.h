#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <qx.hpp>

#include "progress_line.h"

namespace qx::tool {

/// A check of a file as a whole and of all its groups; the number of groups stays as it is meanwhile.
class FileScan {
  public:
    explicit FileScan(File& file);
    FileScan(const FileScan&) = delete;
    FileScan& operator=(const FileScan&) = delete;
    ~FileScan();

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
    File& file_;
    FileVerification verification_;
    HeaderValues header_;  // known if there are groups
    bool held_ = false;
};

}  // namespace qx::tool
