// The records that are stored, and the order in which they are worked on.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "phase.h"

namespace qx::compare {

inline constexpr uint32_t kKeyBytes = 15;

struct Load {
    uint64_t Records = 0;  // fits 32 bits
    uint32_t DataBytes = 0;

    uint64_t PayloadBytes() const { return Records * (kKeyBytes + DataBytes); }
};

// The least data that a record can be recognised by.
inline constexpr uint32_t kLeastDataBytes = 16;

// What the phases make of a record's data.
enum class Revision : uint64_t { Inserted, Overwritten, Replaced };

// Data of a record, which say of which one and which revision they are.
class RecordData {
  public:
    explicit RecordData(const Load& load);

    // Valid until the next call.
    std::string_view Of(uint64_t number, Revision revision);

    // Whether data that were read are those of a record: by their length and the part that differs among records.
    bool Agrees(std::string_view data, uint64_t number, Revision revision) const;

  private:
    uint32_t LengthOf(Revision revision) const;

    uint32_t dataBytes_;
    std::string bytes_;
};

// What one of several workers has to do in a phase: its share of the records in random order, their keys side by side
// in the order of use, so that making them costs the measured operations nothing.
class Share {
  public:
    Share(const Load& load, Phase phase, uint32_t worker, uint32_t workers, uint64_t seed);

    uint64_t Size() const { return numbers_.size(); }
    uint64_t Number(uint64_t index) const { return numbers_[index]; }
    std::string_view Key(uint64_t index) const { return std::string_view(keys_).substr(index * kKeyBytes, kKeyBytes); }

  private:
    std::vector<uint32_t> numbers_;
    std::string keys_;
};

}  // namespace qx::compare
