// A process's and a session's part in the lock file of a volume: the file itself, a user slot for the process, and an
// identifier slot for each session that limits how many sessions may carry its identifier.
#pragma once

#include <cstdint>
#include <string_view>

namespace qx {

struct SessionRecord;
struct VolumeRecord;

inline constexpr std::string_view kLockFile = "MOXLOCKS";

// When the process begins to use the volume: opens the lock file, made if need be, and takes the first free user slot.
// Where byte locks do not work and the parameters do not demand them, the volume goes without; where the parameters
// renounce them, nothing is done. Raises 1029, 1020, 1021, 1024 and leaves the file closed then.
void BeginLocking(VolumeRecord& volume);

// When the process has stopped using it.
void EndLocking(VolumeRecord& volume);

// An identifier slot for a session that begins to use the volume: its lock offset, or 0 when the session needs none.
// Raises 1022, 1025.
uint32_t TakeIdentifierSlot(const VolumeRecord& volume, const SessionRecord& session);

void GiveBackIdentifierSlot(const VolumeRecord& volume, uint32_t slot);

}  // namespace qx
