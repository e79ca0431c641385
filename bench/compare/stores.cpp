#include "stores.h"

#include <algorithm>
#include <array>
#include <filesystem>

namespace qx::compare {

namespace {

constexpr std::array kStores = {
    StoreKind{"qx", "Corvane, byte locks between processes", true, true, OpenCorvane},
    StoreKind{"floor", "the system calls of qx alone", true, true, OpenFloor, "qx"},
    StoreKind{"qx-nolocks", "Corvane, LOCKS=FALSE", true, false, OpenCorvaneUnlocked},
    StoreKind{"floor-nolocks", "the system calls of qx-nolocks alone", true, false, OpenFloorUnlocked, "qx-nolocks"},
    StoreKind{"gdbm", "GDBM", false, false, OpenGdbm},
    StoreKind{"tdb", "TDB", false, true, OpenTdb},
    StoreKind{"tdb-nolocks", "TDB without its locks", false, false, OpenTdbUnlocked},
    StoreKind{"bdb", "Berkeley DB hash, private", false, false, OpenBerkeleyPrivate},
    StoreKind{"bdb-cds", "Berkeley DB hash, concurrent data store", true, true, OpenBerkeleyConcurrent},
    StoreKind{"lmdb", "LMDB, no sync", true, true, OpenLmdb},
    StoreKind{"kyoto", "Kyoto Cabinet HashDB", true, false, OpenKyoto},
    StoreKind{"tkrzw", "Tkrzw HashDBM", true, false, OpenTkrzw},
    StoreKind{"sqlite", "SQLite, WAL, synchronous off", true, true, OpenSqlite},
};

}  // namespace

std::span<const StoreKind> Stores() {
    return kStores;
}

const StoreKind* FindStore(std::string_view name) {
    const auto* found = std::ranges::find(kStores, name, &StoreKind::Name);
    return found == kStores.end() ? nullptr : found;
}

// Files that only carry what processes share in memory or lock stand in directories of their own, or are empty.
uint64_t SizeOnDisk(const std::string& directory) {
    uint64_t size = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        if (entry.is_regular_file()) {
            size += entry.file_size();
        }
    }
    return size;
}

}  // namespace qx::compare
