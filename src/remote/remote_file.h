// Files that a server has open for a session, and calls on them.
#pragma once

#include <cstdint>

#include "remote/remote_session.h"
#include "remote/transfer_descriptor.h"
#include "runtime/buffer_access.h"
#include "runtime/claim_mutex.h"

namespace qx {

// What a handle on such a file has in place of the records of a local one.
struct RemoteFile {
    explicit RemoteFile(RemoteSession& session) : Session(session) {}

    RemoteSession& Session;
    uint32_t ServerFile = 0;                          // the server's handle of the file
    TransferDescriptor Position = PlainTransfer({});  // the application's position object, if it has one
    ClaimMutex PositionMutex;                         // one call with the position at a time
};

// A call on a remote file, and what is needed to put a request together for it.
class RemoteFileCall {
  public:
    RemoteFileCall(RemoteFile& file, const BufferAccess& buffers) : file_(file), callback_(buffers.Callback()) {}

    // The server's handle, for requests with more fields than that.
    uint32_t File() const { return file_.ServerFile; }

    TransferDescriptor Send(uint32_t buffer) const { return SendTransfer(callback_, buffer); }
    TransferDescriptor Receive(uint32_t buffer) const { return ReceiveTransfer(callback_, buffer); }

    // Send the request, with descriptors in their order, and return the results. Raise what CallServer raises.
    template <class Request, class... Descriptors>
    typename Request::Results Ask(const Request& request, Descriptors&&... descriptors) const {
        return CallServer(file_.Session.Connection, request, descriptors...);
    }
    template <Opcode opcode, class... Descriptors>
    typename FileRequest<opcode>::Results Ask(Descriptors&&... descriptors) const {
        return Ask(FileRequest<opcode>{file_.ServerFile}, descriptors...);
    }

    // The same for a request on the walk, which goes with the position. Raises 1028 too.
    template <Opcode opcode, class... Descriptors>
    void AskWithPosition(Descriptors&&... descriptors) const {
        const ClaimHold hold(file_.PositionMutex);
        Ask<opcode>(file_.Position, descriptors...);
    }

  private:
    RemoteFile& file_;
    const BufferCallback callback_;
};

}  // namespace qx
