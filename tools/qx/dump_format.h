// The text of a dump: ASCII throughout, so that it survives whatever carries text.
//
//     qx dump 1                            the format, and its version
//     version 120                          how the file was made
//     modulo 41
//     frame-size 1024
//     threshold 204
//     size-lock 0
//     =1001<tab>Ann Lee\FELondon           a record: key and data
//     end 1 0123456789ABCDEF               how many records, and the checksum of all lines above
//
// In a record, printable bytes but the backslash stand for themselves; any other byte is a backslash and two capital
// hexadecimal digits.
#pragma once

#include <array>
#include <cstdint>
#include <qx.hpp>
#include <string_view>

namespace qx::tool {

constexpr std::string_view kDumpFirstLine = "qx dump 1";

struct DumpSetting {
    std::string_view Name;
    std::uint32_t CreateSettings::*Value;
};

/// In the order of their lines.
constexpr std::array<DumpSetting, 5> kDumpSettings = {{{"version", &CreateSettings::Version},
                                                       {"modulo", &CreateSettings::Modulo},
                                                       {"frame-size", &CreateSettings::FrameSize},
                                                       {"threshold", &CreateSettings::Threshold},
                                                       {"size-lock", &CreateSettings::SizeLock}}};

constexpr char kDumpRecordBegin = '=';
constexpr char kDumpDataBegin = '\t';
constexpr std::string_view kDumpEnd = "end";

/// Whether the byte stands for itself in a record.
constexpr bool StandsForItself(char byte) {
    return byte >= 0x20 && byte <= 0x7E && byte != '\\';
}

}  // namespace qx::tool
