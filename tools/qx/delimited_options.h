#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <string>

#include "delimited_reader.h"

namespace qx::tool {

/// The options of the commands that read or write delimited text: how columns are told apart, and which one is the key.
class DelimitedOptions {
  public:
    explicit DelimitedOptions(CLI::App& app);

    /// Throws WrongUse.
    DelimitedFormat Format() const;

    /// The column of the key, from 0, where there is no header line. Throws WrongUse.
    std::size_t KeyColumn() const;

    /// The same under this header line. Throws std::runtime_error when it has no such column, or several.
    std::size_t KeyColumn(const DelimitedLine& header) const;

  private:
    std::string KeyText() const;

    const CLI::Option* delimiter_;
    const CLI::Option* key_;
    const CLI::Option* noQuotes_;
};

}  // namespace qx::tool
