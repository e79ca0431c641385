#include "lock_places.h"

#include <algorithm>

#include "messages.h"

namespace qx::tool {

namespace {

constexpr std::uint32_t kFreeFrames = 0xFFFFFFFF;  // takes the number of a group

LockPlaces Unit(const LockMap& map, LockArea area, std::uint32_t first, std::string what) {
    return {area, first, first + map.Users() - 1, std::move(what)};
}

std::string Numbers(const std::string& thing, std::uint32_t first, std::uint32_t last) {
    return first == last ? thing + ' ' + std::to_string(first)
                         : thing + "s " + std::to_string(first) + '-' + std::to_string(last);
}

const char* LockName(LockArea area) {
    switch (area) {
        case LockArea::IdentifierSlots:
            return "session identifier";
        case LockArea::FileLocks:
            return "file lock";
        case LockArea::RecordLocks:
            return "record lock";
        case LockArea::GroupLocks:
            return "group lock";
        case LockArea::SelectLocks:
            return "select lock";
        default:
            return "user slot";
    }
}

}  // namespace

std::vector<LockPlaces> PlacesOfFile(const LockMap& map, const std::string& name, std::uint32_t groups) {
    const std::uint32_t hash = HashFileName(name);
    std::vector<LockPlaces> places = {
        Unit(map, LockArea::FileLocks, map.FileUnit(hash), "file lock"),
        Unit(map, LockArea::SelectLocks, map.SelectUnit(hash), "select lock"),
        Unit(map, LockArea::GroupLocks, map.GroupUnit(hash, kFreeFrames), "free frames"),
    };
    std::uint32_t number = 0;
    for (const LockUnits& piece : map.GroupUnits(hash, 0, groups)) {
        if (piece.Count != 0) {
            places.push_back(
                {LockArea::GroupLocks, piece.First, piece.First + (piece.Count * map.Users() - 1), "group", number});
            number += piece.Count;
        }
    }
    return places;
}

LockPlaces PlaceOfRecord(const LockMap& map, const std::string& name, const std::string& key) {
    const std::uint32_t unit = map.RecordUnit(HashRecordKey(HashFileName(name), key));
    return Unit(map, LockArea::RecordLocks, unit, "record " + Quoted(key));
}

std::vector<LockPlaces> CutToUnits(const LockMap& map, std::uint32_t first, std::uint32_t last) {
    const std::uint32_t users = map.Users();
    std::vector<LockPlaces> cut;
    for (auto area = LockArea::UserSlots; area <= LockArea::SelectLocks;
         area = static_cast<LockArea>(static_cast<int>(area) + 1)) {
        const std::uint32_t base = map.BaseOf(area);
        const std::uint32_t end = base + (map.CountOf(area) * users - 1);
        if (first > end || last < base) {
            continue;
        }
        const std::uint32_t from = std::max(first, base) - base;
        const std::uint32_t to = std::min(last, end) - base;
        const auto add = [&](std::uint32_t start, std::uint32_t stop) {
            cut.push_back({area, base + start, base + stop});
        };
        if (area == LockArea::UserSlots || from / users == to / users) {
            add(from, to);
            continue;
        }
        const std::uint32_t whole = (from + users - 1) / users * users;
        const std::uint32_t rest = (to + 1) / users * users;
        if (from < whole) {
            add(from, whole - 1);
        }
        if (whole < rest) {
            add(whole, rest - 1);
        }
        if (rest <= to) {
            add(rest, to);
        }
    }
    return cut;
}

bool AreWholeUnits(const LockMap& map, const LockPlaces& places) {
    return (places.First - map.BaseOf(places.Area)) % map.Users() == 0 &&
           (places.Last - map.BaseOf(places.Area) + 1) % map.Users() == 0;
}

std::string NameOf(const LockMap& map, const LockPlaces& places) {
    const std::uint32_t base = map.BaseOf(places.Area);
    const std::uint32_t width = places.Area == LockArea::UserSlots ? 1 : map.Users();
    const std::uint32_t first = (places.First - base) / width;
    const std::uint32_t last = (places.Last - base) / width;
    if (places.What == "group") {
        return Numbers("group", places.FirstNumber, places.FirstNumber + (last - first));
    }
    return places.What.empty() ? Numbers(LockName(places.Area), first, last) : places.What;
}

}  // namespace qx::tool
