// The stores that are compared.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "store.h"

namespace qx::compare {

struct StoreKind {
    std::string_view Name;
    std::string_view Description;
    bool ManyThreads;    // several threads of a process may use it at once
    bool ManyProcesses;  // several processes may
    std::unique_ptr<Store> (*Open)(const StoreSettings&);
    std::string_view Imitates = {};  // the store whose frame work it repeats, if it is a floor
};

// Those that floors imitate stand before them.
std::span<const StoreKind> Stores();

const StoreKind* FindStore(std::string_view name);

std::unique_ptr<Store> OpenCorvane(const StoreSettings& settings);
std::unique_ptr<Store> OpenCorvaneUnlocked(const StoreSettings& settings);
std::unique_ptr<Store> OpenFloor(const StoreSettings& settings);
std::unique_ptr<Store> OpenFloorUnlocked(const StoreSettings& settings);
std::unique_ptr<Store> OpenGdbm(const StoreSettings& settings);
std::unique_ptr<Store> OpenTdb(const StoreSettings& settings);
std::unique_ptr<Store> OpenTdbUnlocked(const StoreSettings& settings);
std::unique_ptr<Store> OpenBerkeleyPrivate(const StoreSettings& settings);
std::unique_ptr<Store> OpenBerkeleyConcurrent(const StoreSettings& settings);
std::unique_ptr<Store> OpenLmdb(const StoreSettings& settings);
std::unique_ptr<Store> OpenKyoto(const StoreSettings& settings);
std::unique_ptr<Store> OpenTkrzw(const StoreSettings& settings);
std::unique_ptr<Store> OpenSqlite(const StoreSettings& settings);

}  // namespace qx::compare
