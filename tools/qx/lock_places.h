#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "locking/lock_offsets.h"

namespace qx::tool {

/// Bytes of a lock file that belong together, as lock offsets.
struct LockPlaces {
    LockArea Area = LockArea::UserSlots;
    std::uint32_t First = 0;
    std::uint32_t Last = 0;
    std::string What = {};          // of a file or record; otherwise the unit is told
    std::uint32_t FirstNumber = 0;  // of groups, that of the first
};

/// What of a volume's lock file stands for a file with so many groups, or for one of its keys.
std::vector<LockPlaces> PlacesOfFile(const LockMap& map, const std::string& name, std::uint32_t groups);
LockPlaces PlaceOfRecord(const LockMap& map, const std::string& name, const std::string& key);

/// The bytes from `first` to `last`, cut where areas and where shared and whole units meet. Bytes that stand for
/// nothing are left out.
std::vector<LockPlaces> CutToUnits(const LockMap& map, std::uint32_t first, std::uint32_t last);

/// Whether the bytes are whole units, which is how a thing is locked exclusively; a single byte of one shares it.
bool AreWholeUnits(const LockMap& map, const LockPlaces& places);

/// In words: "record lock 5", "group locks 5-9", "group 5".
std::string NameOf(const LockMap& map, const LockPlaces& places);

}  // namespace qx::tool
