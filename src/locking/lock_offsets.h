// The map of a volume's lock file: which bytes of it stand for which file, record, group, select lock or user slot.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace qx {

// Where lock offset 0 lies in the lock file: far beyond any data.
inline constexpr uint64_t kLockPositions = 0xFFFFFFFF00000000;

constexpr uint64_t LockPosition(uint32_t offset) {
    return kLockPositions + offset;
}

// Hashes wrap at 32 bits.
constexpr uint32_t HashOn(uint32_t hash, std::string_view bytes) {
    for (const char byte : bytes) {
        hash = hash * 10 + static_cast<uint8_t>(byte);
    }
    return hash;
}

// Of a file's name within its volume; the hashes of what belongs to the file go on from it.
constexpr uint32_t HashFileName(std::string_view name) {
    return HashOn(0, name) * 10 + 255;
}

constexpr uint32_t HashRecordKey(uint32_t fileNameHash, std::string_view key) {
    return HashOn(fileNameHash, key);
}

constexpr uint32_t HashIdentifier(std::string_view identifier) {
    return HashOn(0, identifier);
}

enum class LockArea : uint8_t { UserSlots, IdentifierSlots, FileLocks, RecordLocks, GroupLocks, SelectLocks };

// Lock units next to each other.
struct LockUnits {
    uint32_t First = 0;  // offset
    uint32_t Count = 0;
};

// Everything that can be locked has a unit, one byte wide for every user that the volume allows. Different things may
// share a unit.
class LockMap {
  public:
    static constexpr uint32_t kDefaultUsers = 1024;
    static constexpr uint32_t kMostUsers = 0x07FFFFFF;  // beyond, an area would not hold a whole unit

    // From 1 to kMostUsers.
    constexpr explicit LockMap(uint32_t users = kDefaultUsers) : users_(users) {}

    constexpr uint32_t Users() const { return users_; }

    constexpr uint32_t UserSlot(uint32_t slot) const { return BaseOf(LockArea::UserSlots) + slot; }
    constexpr uint32_t IdentifierUnit(std::string_view identifier) const {
        return UnitOf(LockArea::IdentifierSlots, HashIdentifier(identifier));
    }
    constexpr uint32_t FileUnit(uint32_t fileNameHash) const { return UnitOf(LockArea::FileLocks, fileNameHash); }
    constexpr uint32_t RecordUnit(uint32_t recordHash) const { return UnitOf(LockArea::RecordLocks, recordHash); }
    constexpr uint32_t GroupUnit(uint32_t fileNameHash, uint32_t group) const {
        return UnitOf(LockArea::GroupLocks, GroupHash(fileNameHash, group));
    }
    constexpr uint32_t SelectUnit(uint32_t fileNameHash) const { return UnitOf(LockArea::SelectLocks, fileNameHash); }

    // The units of a row of groups lie side by side, but for two turning points: the end of the area, and the end of
    // the numbers before they are reduced to units. No piece is empty but those at the end.
    static constexpr uint32_t kMostPieces = 3;
    constexpr std::array<LockUnits, kMostPieces> GroupUnits(uint32_t fileNameHash, uint32_t first,
                                                            uint32_t count) const {
        std::array<LockUnits, kMostPieces> pieces{};
        const uint32_t units = CountOf(LockArea::GroupLocks);
        if (count >= units) {
            pieces[0] = {BaseOf(LockArea::GroupLocks), units};
            return pieces;
        }
        for (size_t i = 0; count > 0; ++i) {
            const uint32_t hash = GroupHash(fileNameHash, first);
            const uint32_t toEndOfNumbers = 0 - hash;  // 0: all of them
            uint32_t piece = units - hash % units;
            piece = piece < count ? piece : count;
            piece = toEndOfNumbers != 0 && toEndOfNumbers < piece ? toEndOfNumbers : piece;
            pieces[i] = {GroupUnit(fileNameHash, first), piece};
            first += piece;
            count -= piece;
        }
        return pieces;
    }

    constexpr uint32_t BaseOf(LockArea area) const {
        switch (area) {
            case LockArea::UserSlots:
                return 1;
            case LockArea::IdentifierSlots:
                return users_ + 1;
            case LockArea::FileLocks:
                return 0x10000000;
            case LockArea::RecordLocks:
                return 0x20000000;
            case LockArea::GroupLocks:
                return 0x80000000;
            default:
                return 0xF0000000;
        }
    }

    constexpr uint32_t SizeOf(LockArea area) const {
        switch (area) {
            case LockArea::UserSlots:
                return users_;
            case LockArea::IdentifierSlots:
                return 0x10000000 - (users_ + 1);
            case LockArea::RecordLocks:
                return 0x60000000;
            case LockArea::GroupLocks:
                return 0x70000000;
            default:
                return 0x10000000;
        }
    }

    // Whole units in an area.
    constexpr uint32_t CountOf(LockArea area) const { return SizeOf(area) / users_; }

  private:
    static constexpr uint32_t GroupHash(uint32_t fileNameHash, uint32_t group) { return fileNameHash * 1024 + group; }

    constexpr uint32_t UnitOf(LockArea area, uint32_t hash) const {
        return hash % CountOf(area) * users_ + BaseOf(area);
    }

    uint32_t users_;
};

}  // namespace qx
