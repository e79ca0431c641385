// What a call on a local file works with: filled at its entry, used by every file-level operation.
#pragma once

#include <cstdint>

#include "runtime/counters.h"
#include "runtime/library_record.h"
#include "runtime/session_record.h"
#include "storage/file_handle.h"
#include "storage/open_file.h"

namespace qx {

// The levels at which a call on a file is counted: for a remote one, only those that do not depend on the file.
inline CounterLevels LevelsOf(SessionRecord& session, FileHandle& handle) {
    if (handle.IsRemote()) {
        return {.Session = &session.Counters};
    }
    return {&session.Counters, &handle.File->Volume.Counters, &handle.File->Counters, &handle.Counters};
}

struct FileCall {
    uint32_t SessionHandle = kNoHandle;
    SessionRecord* Session = nullptr;
    uint32_t HandleNumber = kNoHandle;
    FileHandle* Handle = nullptr;
    OpenFile* File = nullptr;
    CounterLevels Levels;

    FileCall(SessionRecord& session, uint32_t handleNumber, FileHandle& handle)
        : SessionHandle(handle.Session),
          Session(&session),
          HandleNumber(handleNumber),
          Handle(&handle),
          File(handle.File),
          Levels(LevelsOf(session, handle)) {}

    const VolumeSettings& Settings() const { return File->Volume.Settings; }

    bool MayWrite() const { return File->MayWrite(Handle->ReadOnly); }

    // The largest record or key list that the session and the volume allow.
    bool Exceeds(uint64_t length) const {
        const uint32_t ofSession = Session->MaximumRecordSize;
        const uint32_t ofVolume = Settings().MaximumRecordSize;
        return (ofSession != 0 && length > ofSession) || (ofVolume != 0 && length > ofVolume);
    }
};

}  // namespace qx
