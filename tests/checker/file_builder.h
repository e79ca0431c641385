// Builds hashed files by hand, without the engine: fixtures with any header length (the library never makes the 22-byte
// one), known good or then damaged byte by byte.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace qx_check {

struct Record {
    std::string key;
    std::string data;

    bool operator==(const Record&) const = default;
    auto operator<=>(const Record&) const = default;
};

struct FileShape {
    uint8_t headerLength = 32;  // 22, 26 or 32
    uint32_t modulo = 1;
    uint32_t frameSize = 1024;
    uint8_t threshold = 204;
    uint16_t sizeLock = 0;
    uint8_t fillCharacter = 0;
    // Overflow frames to be left free; the chains are built around them. One above the last frame of every chain makes
    // a file that was not cut back.
    std::vector<uint32_t> freeFrames;
    // ModuloStamps of single groups; the others have the modulo.
    std::map<uint32_t, uint32_t> stamps;
};

struct BuiltFile {
    std::vector<uint8_t> primary;
    std::vector<uint8_t> overflow;

    // Writes pathWithoutExtension.LK and .OV.
    void Save(const std::string& pathWithoutExtension) const;
};

// Every record goes to its group, in the order given. Throws std::invalid_argument for a shape that the layout cannot
// express.
BuiltFile BuildFile(const FileShape& shape, const std::vector<Record>& records);

// Also for a test's own encoding: a number as the records hold it.
std::string EncodeNumber(uint32_t value);

}  // namespace qx_check
