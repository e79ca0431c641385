// What the comparison measures, in the order in which it is done.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qx::compare {

enum class Phase : uint8_t { Insert, Read, Miss, Overwrite, Replace, Walk, Delete };

inline constexpr std::array<std::string_view, 7> kPhaseNames = {"insert",  "read", "miss",  "overwrite",
                                                                "replace", "walk", "delete"};
inline constexpr size_t kPhaseCount = kPhaseNames.size();

template <class Value>
using ForEachPhase = std::array<Value, kPhaseCount>;

constexpr size_t IndexOf(Phase phase) {
    return static_cast<size_t>(phase);
}

}  // namespace qx::compare
