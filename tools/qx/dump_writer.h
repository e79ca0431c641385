#pragma once

#include <cstdint>
#include <qx.hpp>
#include <string>
#include <string_view>

#include "crc64.h"
#include "output.h"

namespace qx::tool {

/// Writes a dump. One that is not finished is refused by whoever reads it.
class DumpWriter {
  public:
    DumpWriter(Output& output, const CreateSettings& settings);

    void Write(std::string_view key, std::string_view record);
    void Finish();

  private:
    void Append(std::string_view bytes);
    void EndLine();

    Output& output_;
    Crc64 checksum_;
    std::uint64_t records_ = 0;
    std::string line_;
};

}  // namespace qx::tool
