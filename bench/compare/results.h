// What a run has measured, as tables for the reader and as JSON for programs.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "cell.h"

namespace qx::compare {

enum class Clock : uint8_t {
    Wall,  // what the caller waits for
    Cpu,   // what all threads together spend, which a busy machine blurs less
};

// The stores that did the same work under the same conditions.
struct Contest {
    Load Records;
    Sizing Size = Sizing::Default;
    Workers Team;
    struct Entry {
        const StoreKind* Kind;
        CellResult Result;
    };
    std::vector<Entry> Entries;

    const CellResult* ResultOf(std::string_view store) const;  // null if it has none, or has failed
};

std::string_view NameOf(Sizing sizing);
std::string NameOf(const Workers& workers);

// Microseconds per operation, and then the same as multiples of what qx and qx-nolocks take, if they took part.
void PrintTables(std::ostream& to, const Contest& contest, Clock clock);

void WriteJson(std::ostream& to, const std::vector<Contest>& contests, uint64_t seed, uint32_t rounds);

}  // namespace qx::compare
