// The stores that are compared.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "store.h"

namespace qx::compare {

using OpenStore = std::unique_ptr<Store>(const StoreSettings&);

struct StoreKind {
    std::string_view Name;
    std::string_view Description;
    bool ManyThreads;    // several threads of a process may use it at once
    bool ManyProcesses;  // several processes may
    OpenStore* Open;
    std::string_view Imitates = {};  // the store whose frame work it repeats, if it is a floor
};

// Those that floors imitate stand before them.
std::span<const StoreKind> Stores();

const StoreKind* FindStore(std::string_view name);

OpenStore OpenCorvane, OpenCorvaneUnlocked, OpenFloor, OpenFloorUnlocked, OpenGdbm, OpenTdb, OpenTdbUnlocked,
    OpenBerkeleyPrivate, OpenBerkeleyConcurrent, OpenLmdb, OpenKyoto, OpenTkrzw, OpenSqlite;

}  // namespace qx::compare
