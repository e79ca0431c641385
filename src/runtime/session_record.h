// A session: what an application's calls run under.
#pragma once

#include <cstdint>
#include <string_view>

#include "runtime/buffer_access.h"
#include "runtime/claim_mutex.h"
#include "runtime/counters.h"
#include "runtime/handle_list.h"
#include "runtime/held_locks.h"

namespace qx {

struct CallerGroupLock;
struct RemoteSession;
struct VolumeUse;

struct SessionRecord {
    HandleLinks Links;  // in the list of all sessions
    BufferAccess Buffers;
    uint32_t MaximumRecordSize = 0;  // bytes; 0: no limit
    uint32_t MaximumIdentifierSessions = 0;
    uint32_t IdentifierLength = 0;
    char Identifier[16] = {};
    VolumeUse* VolumeUses = nullptr;          // one for each volume that the session uses
    RemoteSession* RemoteSessions = nullptr;  // one for each server that it uses
    ClaimMutex GroupLockMutex;                // taking a group for the application, which may wait for long
    ClaimMutex HeldGroupMutex;                // what is below: never owned for long
    CallerGroupLock* GroupLock = nullptr;     // the group that the session holds for its application
    HandleList Files;                         // its open file handles
    ClaimMutex LockMutex;                     // the locks below; claimed before that of a file's locks
    HeldLocks Locks;                          // on files and records, held for its application
    CounterSet Counters;

    std::string_view IdentifierBytes() const { return {Identifier, IdentifierLength}; }
};

}  // namespace qx
