#pragma once

#include <cstdint>
#include <optional>
#include <qx.hpp>
#include <string_view>

#include "group_count_hold.h"

namespace qx::tool {

/// Many records written into one file. A file that was made with groups for records to come would give most of them
/// away as long as it holds few; here it keeps them until there is enough for them. Must go before the file does.
class Filling {
  public:
    /// Throws what reading the header can fail with.
    explicit Filling(File& file);

    void Write(std::string_view key, std::string_view record) {
        file_.Write(key, record);
        if (hold_ && ++written_ % kWritesBetweenLooks == 0) {
            Look();
        }
    }

  private:
    static constexpr std::uint64_t kWritesBetweenLooks = 256;

    bool WouldShrink() const;
    void Look();

    File& file_;
    std::optional<GroupCountHold> hold_;
    std::uint64_t written_ = 0;
};

}  // namespace qx::tool
