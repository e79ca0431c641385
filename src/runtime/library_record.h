// The library in this process.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/host_service.h"
#include "runtime/claim_mutex.h"
#include "runtime/handle_list.h"
#include "runtime/handle_table.h"
#include "runtime/session_record.h"
#include "runtime/spin_lock.h"
#include "runtime/state_gate.h"

namespace qx {

struct LibraryRecord {
    SpinLock InitializeLock;  // one QXInitialize or QXTerminate at a time, held for as long as it takes
    uint32_t InitializeCount = 0;
    bool SetUpDone = false;
    StateGate Gate;  // open while the library is started; every call that takes a handle is inside it

    ClaimMutex ApiMutex;  // opening and closing of sessions and files, creating and deleting

    HandleTable Sessions;
    HandleTable Files;
    HandleList SessionList;

    char ComputerName[16] = {};
    uint32_t ComputerNameLength = 0;

    std::string_view Host() const { return {ComputerName, ComputerNameLength}; }
};

extern LibraryRecord theLibrary;

// Process-wide set-up: heaps, wait events and the computer's name. Raises 1007 with the step that failed and leaves
// nothing behind then. Does nothing when it has been done.
void SetUpProcess();

// Undoes the set-up; nothing that lives on the heaps may be used afterwards.
void TearDownProcess();

}  // namespace qx
