// What a call on a file works with: filled at its entry, used by every file-level operation.
#pragma once

#include <cstdint>

#include "runtime/counters.h"
#include "runtime/library_record.h"
#include "runtime/session_record.h"
#include "storage/file_handle.h"
#include "storage/open_file.h"

namespace qx {

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
          Levels{&session.Counters, &handle.File->Volume.Counters, &handle.File->Counters, &handle.Counters} {}

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
