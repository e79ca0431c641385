// The locks that a session takes on files and records for its application.
#pragma once

#include <optional>
#include <string_view>

#include "locking/lock_table.h"
#include "storage/file_call.h"

namespace qx {

// Each of these raises 1028. A lock is taken through the call's handle, and given up through any handle that the
// session has on the file; the unlocking functions are false when the session holds no such lock.
LockOutcome LockWholeFile(FileCall& call, bool exclusive);
LockOutcome LockRecord(FileCall& call, std::string_view key, bool exclusive);
bool UnlockWholeFile(FileCall& call);
bool UnlockRecord(FileCall& call, std::string_view key);

// Owns the mutex of one file's locks at a time, for whoever goes through the locks of a session and owns that mutex.
class LockTableClaim {
  public:
    // Raises 1028.
    void MoveTo(LockTable& table) {
        if (&table != claimed_) {
            claimed_ = nullptr;
            hold_.reset();
            hold_.emplace(table.Mutex);
            claimed_ = &table;
        }
    }

  private:
    std::optional<ClaimHold> hold_;
    const LockTable* claimed_ = nullptr;
};

// Gives up every lock of the session. Raises 1028, with some of them given up.
void ReleaseLocksOfSession(SessionRecord& session);

// Gives up every lock that was taken through the call's handle, which is being closed.
void ReleaseLocksOfHandle(FileCall& call);

}  // namespace qx
