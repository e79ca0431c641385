// Records that applications hand over: they begin with their size, and a word is there only when the size covers it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <qx.h>

#include "storage/layout/file_header.h"

namespace qx {

// What an application's record says, with zeros for what it does not cover; `record` may be null.
template <class Record>
Record ReadCallerRecord(const Record* record) {
    Record copy{};
    if (record != nullptr) {
        const size_t covered = record->Size < sizeof copy ? record->Size / 4 * 4 : sizeof copy;
        std::memcpy(&copy, record, covered);
        copy.Size = record->Size;
    }
    return copy;
}

// Fills the words after the size of an application's record, as far as it covers them; `record` may be null.
template <class Record>
void WriteCallerRecord(const Record& from, Record* record) {
    if (record != nullptr && record->Size > sizeof record->Size) {
        const size_t covered = record->Size < sizeof from ? record->Size / 4 * 4 : sizeof from;
        std::memcpy(reinterpret_cast<char*>(record) + 4, reinterpret_cast<const char*>(&from) + 4, covered - 4);
    }
}

}  // namespace qx
