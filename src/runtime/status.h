// Status codes, and how a failure deep inside an operation reaches the exported function that reports it.
#pragma once

#include <cstdint>
#include <exception>
#include <new>
#include <qx.h>
#include <utility>

#include "runtime/counters.h"

namespace qx {

enum class Code : uint32_t {
    None = 0,
    RecordNotFound = 100,
    ReadOnly = 102,
    VolumeFull = 103,
    WriteFailed = 104,
    ReadFailed = 107,
    EndOfWalk = 111,
    RecordTruncated = 125,
    FrameLink = 126,
    RecordTermination = 127,
    GroupMoved = 129,
    BufferRefused = 160,
    FileExists = 230,
    FileNotFound = 231,
    FileNotLocked = 411,
    RecordNotLocked = 412,
    AlreadyLocked = 414,
    LockedElsewhere = 415,
    NameTooLong = 1000,
    KeyListTooLong = 1001,
    RecordTooLong = 1002,
    BadFrameHeader = 1003,
    BadFrameToWrite = 1004,
    BadServerName = 1005,
    BadPath = 1006,
    SetUpFailed = 1007,
    CreateFailed = 1008,
    OpenFailed = 1009,
    LockServiceFailed = 1010,
    LockRefused = 1011,
    GroupLockServiceFailed = 1012,
    GroupLockTimeout = 1013,
    NoWorkArea = 1014,
    NoMemory = 1015,
    NoLockMemory = 1017,
    BadVersion = 1018,
    ServerOnly = 1019,
    LockFileFailed = 1020,
    NoUserSlot = 1021,
    TooManySessions = 1022,
    UserSlotFailed = 1024,
    IdentifierSlotFailed = 1025,
    MarkerHeld = 1026,
    MarkerFailed = 1027,
    CannotSuspend = 1028,
    NoFileHandle = 1029,
    NotOpen = 1100,
    AlreadyOpen = 1101,
    Busy = 1102,
    ConnectFailed = 1104,
    CallFailed = 1105,
    DisconnectFailed = 1106,
    RemoteStatisticsFailed = 1107,
    SendTransferFailed = 1200,
    ReceiveTransferFailed = 1201,
    UnknownTransfer = 1203,
};

// Detail 1 of the codes that name a file.
enum class WhichFile : uint32_t { Primary = 1, Overflow = 2 };

constexpr uint32_t Number(WhichFile file) {
    return static_cast<uint32_t>(file);
}

constexpr StatusRecord MakeStatus(Code code, uint32_t detail1 = 0, uint32_t detail2 = 0) {
    return {static_cast<uint32_t>(code), detail1, detail2};
}

// The one exception of the library: a failure on its way to the exported function that was called.
class Failure final : public std::exception {
  public:
    explicit Failure(const StatusRecord& status) : Status(status) {}
    const char* what() const noexcept override { return "failure with a status record"; }

    StatusRecord Status;
};

[[noreturn]] void Raise(const StatusRecord& status);

[[noreturn]] inline void Raise(Code code, uint32_t detail1 = 0, uint32_t detail2 = 0) {
    Raise(MakeStatus(code, detail1, detail2));
}

// Runs `body` and returns its result; a failure that it raises goes into `status` and false is returned. This is where
// failures are caught: around every exported function, and around each of the steps of a call that goes on releasing
// what it holds after one has failed.
template <class Body>
bool RunCatching(StatusRecord& status, Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (const Failure& failure) {
        status = failure.Status;
    } catch (const std::bad_alloc&) {
        theProcessCounters.Increment(Counter::AllocateFileDataErrors);
        status = MakeStatus(Code::NoMemory);
    } catch (...) {
        status = MakeStatus(Code::BufferRefused);  // only the application's callback throws anything else
    }
    return false;
}

// Collects the outcome of several steps, each of which runs whatever became of those before: the first failure is kept.
class FirstFailure {
  public:
    template <class Step>
    bool Run(Step&& step) noexcept {
        StatusRecord status{};
        const bool good = RunCatching(status, [&] {
            std::forward<Step>(step)();
            return true;
        });
        if (!good) {
            Note(status);
        }
        return good;
    }

    void Note(const StatusRecord& status) {
        if (good_) {
            good_ = false;
            status_ = status;
        }
    }

    bool Good() const { return good_; }
    const StatusRecord& Status() const { return status_; }

    void RaiseIfAny() const {
        if (!good_) {
            Raise(status_);
        }
    }

  private:
    bool good_ = true;
    StatusRecord status_{};
};

}  // namespace qx
