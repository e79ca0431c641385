// QXOpenSession, QXCloseSession, QXFlush.
#include <algorithm>
#include <cstring>
#include <qx.h>

#include "api/caller_record.h"
#include "api/entry.h"
#include "api/session_closing.h"
#include "platform/platform.h"
#include "storage/caller_group_lock.h"
#include "storage/file_opening.h"
#include "storage/remote_handle.h"

namespace qx {

namespace {

// The identifier may be cut short by the size of the record that brings it.
uint32_t IdentifierLength(const SessionOptions& options) {
    constexpr auto kBeforeIdentifier = static_cast<uint32_t>(offsetof(SessionOptions, Identifier));
    if (options.Size < kBeforeIdentifier) {
        return 0;
    }
    return std::min(
        {options.IdentifierLength, static_cast<uint32_t>(sizeof options.Identifier), options.Size - kBeforeIdentifier});
}

// Sessions without an identifier match each other.
void CheckIdentifier(const SessionRecord& wanted) {
    if (wanted.MaximumIdentifierSessions == 0) {
        return;
    }
    HandleTable& table = theLibrary.Sessions;
    uint32_t same = 0;
    for (uint32_t handle = theLibrary.SessionList.Head(); handle != kNoHandle;
         handle = HandleList::Next<&SessionRecord::Links>(table, handle)) {
        if (table.PayloadOf<SessionRecord>(handle)->IdentifierBytes() == wanted.IdentifierBytes()) {
            ++same;
        }
    }
    if (same >= wanted.MaximumIdentifierSessions) {
        Raise(Code::TooManySessions);
    }
}

void TakeOptions(const SessionOptions* given, SessionRecord& session) {
    if (given == nullptr) {
        return;
    }
    SessionOptions options{};
    std::memcpy(&options, given, std::min<size_t>(std::max<size_t>(given->Size, 4), sizeof options));
    const auto covers = [&](uint32_t size) { return options.Size >= size; };
    session.MaximumRecordSize = covers(8) ? options.MaximumRecordSize : 0;
    session.MaximumIdentifierSessions = covers(20) ? options.MaximumIdentifierSessions : 0;
    session.IdentifierLength = IdentifierLength(options);
    std::memcpy(session.Identifier, options.Identifier, session.IdentifierLength);
}

uint32_t OpenSession(BufferCallback callback, const SessionOptions* options) {
    SessionRecord wanted;
    TakeOptions(options, wanted);
    CheckIdentifier(wanted);
    HandleTable& table = theLibrary.Sessions;
    uint32_t handle = kNoHandle;
    auto* session = table.Allocate<SessionRecord>(&handle);
    TakeOptions(options, *session);
    session->Buffers = BufferAccess(callback);
    theLibrary.SessionList.Append<&SessionRecord::Links>(table, handle);
    table.EndOpen(handle);
    theProcessCounters.Enter(Counter::ActiveSessions, Counter::PeakActiveSessions);
    theProcessCounters.Increment(Counter::AddSessions);
    return handle;
}

}  // namespace

namespace {

// A call that has found the file handle but not yet its session does not stay: the session is closed to it.
void WithdrawFile(uint32_t file) {
    StatusRecord busy{};
    while (!RunCatching(busy, [file] {
        theLibrary.Files.BeginClose(file);
        return true;
    })) {
        thePlatform.Threads->Yield();
    }
}

void CloseFileOf(SessionRecord& session, uint32_t handle) {
    auto& record = *theLibrary.Files.PayloadOf<FileHandle>(handle);
    if (record.IsRemote()) {
        CloseRemoteHandle(session, handle);
        return;
    }
    FileCall call(session, handle, record);
    CloseLocalHandle(call);
}

}  // namespace

void WindUpSession(SessionRecord& session, FirstFailure& failure) {
    EndCallerGroupLock(session);
    HandleTable& table = theLibrary.Files;
    for (uint32_t file = session.Files.Head(); file != kNoHandle;
         file = HandleList::Next<&FileHandle::SessionLinks>(table, file)) {
        auto& record = *table.PayloadOf<FileHandle>(file);
        if (!record.IsRemote()) {
            FileCall call(session, file, record);
            failure.Run([&] { WindUpLocalHandle(call); });
        }
    }
}

void CloseSession(uint32_t handle, FirstFailure& failure) {
    HandleTable& table = theLibrary.Sessions;
    auto* session = table.PayloadOf<SessionRecord>(handle);
    while (!session->Files.IsEmpty()) {
        const uint32_t file = session->Files.Head();
        WithdrawFile(file);
        failure.Run([&] { CloseFileOf(*session, file); });
    }
    CloseRemoteSessions(*session, failure);
    theLibrary.SessionList.Remove<&SessionRecord::Links>(table, handle);
    table.Free<SessionRecord>(handle);
    theProcessCounters.Leave(Counter::ActiveSessions);
    theProcessCounters.Increment(Counter::RemoveSessions);
}

}  // namespace qx

extern "C" {

int32_t QXOpenSession(BufferCallback callback, const SessionOptions* options, uint32_t* session, StatusRecord* status) {
    using namespace qx;
    return ExportedCall(status, [&](StatusRecord&) {
        const LibraryEntry library;
        const ClaimHold api(theLibrary.ApiMutex);
        theProcessCounters.Increment(Counter::OpenSessions);
        *session = OpenSession(callback, options);
        return true;
    });
}

int32_t QXCloseSession(uint32_t session, StatusRecord* status) {
    using namespace qx;
    return ExportedCall(status, [&](StatusRecord&) {
        SessionEntry entry(session);
        ReleaseCallerGroupLock(*entry.Session);
        ClaimHold api(theLibrary.ApiMutex);
        entry.BeginClose();
        api.Release();
        entry.Count(Counter::CloseSessions);
        FirstFailure failure;
        WindUpSession(*entry.Session, failure);
        const PatientClaimHold again(theLibrary.ApiMutex);
        CloseSession(session, failure);
        failure.RaiseIfAny();
        return true;
    });
}

int32_t QXFlush(uint32_t session, StatusRecord* status) {
    using namespace qx;
    return ExportedCall(status, [&](StatusRecord&) {
        SessionEntry entry(session);
        entry.Count(Counter::Flushes);
        const ClaimHold api(theLibrary.ApiMutex);
        FirstFailure failure;
        FlushServers(*entry.Session, failure);
        failure.Run([&] { FlushSession(*entry.Session); });
        failure.RaiseIfAny();
        return true;
    });
}

}  // extern "C"
