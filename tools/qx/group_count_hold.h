#pragma once

#include <qx.hpp>

namespace qx::tool {

/// While it lives, a file keeps its number of groups; other such holds do not mind. Must go before the file does.
class GroupCountHold {
  public:
    /// Throws the codes of locking.
    explicit GroupCountHold(const File& file);
    GroupCountHold(const GroupCountHold&) = delete;
    GroupCountHold& operator=(const GroupCountHold&) = delete;
    ~GroupCountHold();

  private:
    const File& file_;
};

}  // namespace qx::tool
