#include "runtime/messages.h"

#include <charconv>
#include <cstring>
#include <string_view>

#include "runtime/status.h"

namespace qx {

namespace {

struct Message {
    Code For;
    const char* Text;  // %1 is the code, %2 and %3 are the details
};

constexpr Message kMessages[] = {
    {Code::RecordNotFound, "There is no such record, or nothing to report on."},
    {Code::ReadOnly, "The volume or the file is read-only."},
    {Code::VolumeFull, "The volume is full (file %2, group number + 1: %3)."},
    {Code::WriteFailed, "Writing, flushing, resizing, creating or deleting failed (file %2, group number + 1: %3)."},
    {Code::ReadFailed, "Reading failed or the file ended early (file %2, group number + 1: %3)."},
    {Code::EndOfWalk, "The walk has no further keys."},
    {Code::RecordTruncated, "A record continues but its group has no further frame (file %2, group number + 1: %3)."},
    {Code::FrameLink, "A frame of the group's chain belongs elsewhere (file %2, group number + 1: %3)."},
    {Code::RecordTermination, "A record does not end with its terminator (file %2, group number + 1: %3)."},
    {Code::GroupMoved, "The number of groups changed again while the key's group was looked up."},
    {Code::BufferRefused, "The buffer callback refused a buffer."},
    {Code::FileExists, "The hashed file exists already."},
    {Code::FileNotFound, "The hashed file does not exist."},
    {Code::FileNotLocked, "The session holds no lock on the file."},
    {Code::RecordNotLocked, "The session holds no lock on the record."},
    {Code::AlreadyLocked, "The session already holds this lock."},
    {Code::LockedElsewhere, "Another session or process holds a conflicting lock."},
    {Code::NameTooLong, "The name is longer than 256 bytes."},
    {Code::KeyListTooLong, "The keys of group %3 would exceed the maximum record size."},
    {Code::RecordTooLong, "The record or report is larger than the maximum record size."},
    {Code::BadFrameHeader, "A frame or the file header is damaged (file %2, group number + 1: %3)."},
    {Code::BadFrameToWrite, "A frame about to be written has a wrong header (file %2, group number + 1: %3)."},
    {Code::BadServerName, "The name begins like a network name but has no server part."},
    {Code::BadPath, "The name does not lead to a path, volume and file."},
    {Code::SetUpFailed, "The library could not be set up (step %3)."},
    {Code::CreateFailed, "A file of the hashed file could not be created (file %2)."},
    {Code::OpenFailed, "A file of the hashed file could not be opened (file %2)."},
    {Code::LockServiceFailed, "The lock service failed."},
    {Code::LockRefused, "The lock was refused inside the process (group %3)."},
    {Code::GroupLockServiceFailed, "The lock service failed on the lock file (group %3)."},
    {Code::GroupLockTimeout, "Another process held the group until the time limit passed (group %3)."},
    {Code::NoWorkArea, "There is no memory for a work area."},
    {Code::NoMemory, "There is no memory or no system resource for the library's records."},
    {Code::NoLockMemory, "There is no memory for a lock record."},
    {Code::BadVersion, "The interface or protocol version is not supported."},
    {Code::ServerOnly, "The volume may be used only through its server."},
    {Code::LockFileFailed, "The volume's lock file cannot be opened or created."},
    {Code::NoUserSlot, "Every user slot of the volume is taken."},
    {Code::TooManySessions, "Too many sessions with this identifier are open."},
    {Code::UserSlotFailed, "The lock on the user slot failed although the volume requires locks."},
    {Code::IdentifierSlotFailed, "The lock on the identifier slot failed."},
    {Code::MarkerHeld, "Another process holds the file's user-slot marker."},
    {Code::MarkerFailed, "The lock on the file's user-slot marker failed."},
    {Code::CannotSuspend, "There is no wait event to wait for a mutex."},
    {Code::NoFileHandle, "The process has no file handle to spare."},
    {Code::NotOpen, "The library, session or file handle is not open."},
    {Code::AlreadyOpen, "The library, session or file handle is open already."},
    {Code::Busy, "The library, session or file is in use."},
    {Code::ConnectFailed, "Connecting to the server failed (error %3)."},
    {Code::CallFailed, "The call to the server failed (error %3)."},
    {Code::DisconnectFailed, "Disconnecting from the server failed (error %3)."},
    {Code::RemoteStatisticsFailed, "The remote-call library's statistics failed (error %3)."},
    {Code::SendTransferFailed, "A buffer to be sent could not be read."},
    {Code::ReceiveTransferFailed, "A buffer could not take the data received."},
    {Code::UnknownTransfer, "The kind or operation of a transfer is unknown."},
};

const char* FindText(uint32_t code) {
    for (const Message& message : kMessages) {
        if (static_cast<uint32_t>(message.For) == code) {
            return message.Text;
        }
    }
    return nullptr;
}

}  // namespace

uint32_t FormatMessage(const StatusRecord& status, uint32_t size, char* buffer) {
    const char* text = FindText(status.Code);
    if (text == nullptr) {
        return 0;
    }
    const uint32_t inserts[] = {status.Code, status.Detail1, status.Detail2};
    uint32_t length = 0;
    for (; *text != '\0'; ++text) {
        char digits[10];
        std::string_view piece(text, 1);
        if (*text == '%') {
            ++text;
            const char* end = std::to_chars(digits, digits + sizeof digits, inserts[*text - '1']).ptr;
            piece = {digits, static_cast<size_t>(end - digits)};
        }
        if (piece.size() >= size - length) {
            return 0;
        }
        std::memcpy(buffer + length, piece.data(), piece.size());
        length += static_cast<uint32_t>(piece.size());
    }
    if (length >= size) {
        return 0;
    }
    buffer[length] = '\0';
    return length;
}

}  // namespace qx
