// Entry to and exit from the exported functions.
#pragma once

#include <cstdint>
#include <qx.h>
#include <utility>

#include "remote/remote_file.h"
#include "runtime/library_record.h"
#include "runtime/status.h"
#include "storage/file_call.h"

namespace qx {

// What every exported function is wrapped in. `body` returns true for success; false for an outcome that it has put
// into the status itself.
template <class Body>
int32_t ExportedCall(StatusRecord* status, Body&& body) noexcept {
    StatusRecord scratch{};
    StatusRecord& target = status != nullptr ? *status : scratch;
    return RunCatching(target, [&] { return std::forward<Body>(body)(target); }) ? 1 : 0;
}

// Keeps the library from being stopped. Raises 1100.
class LibraryEntry {
  public:
    LibraryEntry() {
        if (!theLibrary.Gate.Enter()) {
            Raise(Code::NotOpen);
        }
    }
    ~LibraryEntry() { theLibrary.Gate.Leave(); }
    LibraryEntry(const LibraryEntry&) = delete;
    LibraryEntry& operator=(const LibraryEntry&) = delete;
};

// Keeps an open handle from being closed, until it is left.
class HandleEntry {
  public:
    HandleEntry(HandleTable& table, uint32_t handle) : table_(table), handle_(handle) {}
    ~HandleEntry() {
        if (payload_ != nullptr) {
            HandleTable::Leave(payload_);
        }
    }
    HandleEntry(const HandleEntry&) = delete;
    HandleEntry& operator=(const HandleEntry&) = delete;

    template <class Payload>
    Payload* Enter() {
        auto* payload = table_.Enter<Payload>(handle_);
        payload_ = payload;
        return payload;
    }

    // Withdraws the handle from use. Raises 1102 when another call is inside; this call is outside then, too.
    void BeginClose() {
        HandleTable::Leave(std::exchange(payload_, nullptr));
        table_.BeginClose(handle_);
    }

  private:
    HandleTable& table_;
    const uint32_t handle_;
    void* payload_ = nullptr;  // while the call is inside
};

// A call on a session.
class SessionEntry {
  public:
    explicit SessionEntry(uint32_t handle)
        : Handle(handle), entry_(theLibrary.Sessions, handle), Session(entry_.Enter<SessionRecord>()) {}

    void Count(Counter counter) { CounterLevels{.Session = &Session->Counters}.CountForSession(counter); }

    void BeginClose() { entry_.BeginClose(); }

    const uint32_t Handle;

  private:
    LibraryEntry library_;
    HandleEntry entry_;

  public:
    SessionRecord* const Session;
};

// A call on a file: inside the library, the file handle's session and the file handle.
class FileEntry {
  public:
    explicit FileEntry(uint32_t handle)
        : fileEntry_(theLibrary.Files, handle),
          Handle(*fileEntry_.Enter<FileHandle>()),
          sessionEntry_(theLibrary.Sessions, Handle.Session),
          Session(*sessionEntry_.Enter<SessionRecord>()) {}

    void BeginClose() { fileEntry_.BeginClose(); }

  private:
    LibraryEntry library_;
    HandleEntry fileEntry_;

  public:
    FileHandle& Handle;

  private:
    HandleEntry sessionEntry_;

  public:
    SessionRecord& Session;
};

// An exported function on a file handle: entered, then counted and forwarded to the file's server, or counted and
// worked. The counter is one that adds up.
template <class Forward, class Work>
int32_t FileOperation(uint32_t file, Counter counter, StatusRecord* status, Forward&& forward, Work&& work) noexcept {
    return ExportedCall(status, [&](StatusRecord& target) {
        FileEntry entry(file);
        if (entry.Handle.IsRemote()) {
            CounterLevels{.Session = &entry.Session.Counters}.CountForSession(counter);
            std::forward<Forward>(forward)(RemoteFileCall(*entry.Handle.Remote, entry.Session.Buffers));
            return true;
        }
        FileCall call(entry.Session, file, entry.Handle);
        call.Levels.Handle->Increment(counter);
        return std::forward<Work>(work)(call, target);
    });
}

// The ordinary outcome that a key is not there.
inline bool FoundOrStatus(bool found, StatusRecord& status) {
    if (!found) {
        status = MakeStatus(Code::RecordNotFound);
    }
    return found;
}

}  // namespace qx
