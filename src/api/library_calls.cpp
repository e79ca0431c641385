// QXInitialize, QXTerminate, QXFormatError.
#include <qx.h>

#include "api/entry.h"
#include "api/forked_process.h"
#include "api/session_closing.h"
#include "files/file_cache.h"
#include "records/resize_worker.h"
#include "remote/remote_call_library.h"
#include "remote/remote_connection.h"
#include "runtime/messages.h"
#include "storage/caller_group_lock.h"
#include "volume/volume_record.h"

namespace qx {

namespace {

constexpr uint32_t kUnset = 0xFFFFFFFF;

// 1.1.0 and later.
bool IsSupported(const ApiVersionRecord& version) {
    const auto isLow = [](uint32_t number) { return number == 0 || number == kUnset; };
    if (version.Size < sizeof version || isLow(version.Major)) {
        return false;
    }
    if (version.Major > 1) {
        return true;
    }
    if (isLow(version.Minor)) {
        return false;
    }
    return version.Minor > 1 || version.Revision != kUnset;
}

void AnswerVersion(ApiVersionRecord& version) {
    version.Major = 1;
    version.Minor = 1;
    version.Revision = 1;
}

void Start() {
    theLibrary.Gate.BeginOpen();
    StatusRecord status{};
    const bool good = RunCatching(status, [] {
        if (!WatchForks()) {
            Raise(Code::NoMemory);
        }
        SetUpProcess();
        theRemoteCalls.Start();
        if (!theResizeWorker.Start()) {
            theRemoteCalls.Abandon();
            TearDownProcess();
            Raise(Code::NoMemory);
        }
        return true;
    });
    if (!good) {
        theLibrary.Gate.AbortOpen();
        Raise(status);
    }
    theLibrary.Gate.EndOpen();
}

// No call is inside the library and the worker has ended.
void CloseEverything(FirstFailure& failure) {
    for (uint32_t session = theLibrary.SessionList.Head(); session != kNoHandle;
         session = HandleList::Next<&SessionRecord::Links>(theLibrary.Sessions, session)) {
        ReleaseCallerGroupLock(*theLibrary.Sessions.PayloadOf<SessionRecord>(session));  // another one may wait for it
    }
    while (!theLibrary.SessionList.IsEmpty()) {
        const uint32_t session = theLibrary.SessionList.Head();
        WindUpSession(*theLibrary.Sessions.PayloadOf<SessionRecord>(session), failure);
        CloseSession(session, failure);
    }
    DisconnectServers(failure);
    theRemoteCalls.Stop();
    while (CloseOneIdleFile()) {
    }
    theLibrary.Files.Destroy();
    theLibrary.Sessions.Destroy();
    ForgetVolumes();
}

// As long as nothing has been torn down, a failure leaves the library as it was.
void StopWorker() {
    theLibrary.Gate.BeginClose();
    StatusRecord status{};
    const bool good = RunCatching(status, [] {
        theResizeWorker.Stop();
        return true;
    });
    if (!good) {
        theLibrary.Gate.EndOpen();
        Raise(status);
    }
}

void Stop() {
    StopWorker();
    FirstFailure failure;
    theLibrary.InitializeCount = 0;
    CloseEverything(failure);
    TearDownProcess();
    theLibrary.Gate.EndClose();
    failure.RaiseIfAny();
}

}  // namespace

}  // namespace qx

extern "C" {

int32_t QXInitialize(ApiVersionRecord* version, StatusRecord* status) {
    using namespace qx;
    return ExportedCall(status, [&](StatusRecord&) {
        theProcessCounters.Increment(Counter::Initializes);
        if (version == nullptr || !IsSupported(*version)) {
            Raise(Code::BadVersion);
        }
        const SpinHold hold(theLibrary.InitializeLock);
        if (theLibrary.InitializeCount == 0) {
            Start();
        }
        ++theLibrary.InitializeCount;
        AnswerVersion(*version);
        return true;
    });
}

int32_t QXTerminate(StatusRecord* status) {
    using namespace qx;
    return ExportedCall(status, [&](StatusRecord&) {
        const SpinHold hold(theLibrary.InitializeLock);
        if (theLibrary.InitializeCount == 0) {
            Raise(Code::NotOpen);
        }
        theProcessCounters.Increment(Counter::Terminates);
        if (theLibrary.InitializeCount == 1) {
            Stop();
        } else {
            --theLibrary.InitializeCount;
        }
        return true;
    });
}

uint32_t QXFormatError(const StatusRecord* status, uint32_t, uint32_t bufferSize, char* buffer) {
    return status == nullptr || buffer == nullptr ? 0 : qx::FormatMessage(*status, bufferSize, buffer);
}

}  // extern "C"
