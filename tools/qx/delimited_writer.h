#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "delimited_reader.h"

namespace qx::tool {

/// Writes lines that DelimitedReader takes apart again into the same columns.
class DelimitedWriter {
  public:
    explicit DelimitedWriter(DelimitedFormat format) : format_(format) {}

    /// Puts the columns, of which there is at least one, into `line`, its end included. Where the format cannot hold
    /// them, returns why; otherwise nothing. `line` then holds anything.
    std::string Write(const std::vector<std::string_view>& columns, std::string& line) const;

  private:
    bool NeedsQuotes(std::string_view column) const;

    DelimitedFormat format_;
};

}  // namespace qx::tool
