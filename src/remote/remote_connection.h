// Connections to servers, one for each server's name that the process has met.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "remote/message_codec.h"
#include "remote/messages.h"
#include "remote/server_route.h"
#include "remote/transfer_descriptor.h"
#include "runtime/status.h"
#include "volume/volume_record.h"

namespace qx {

// Kept until the library stops. One that is not connected says that no server has that name, so that its files are
// local.
struct RemoteConnection {
    explicit RemoteConnection(std::string_view name) : Name(name) {}

    const std::string Name;
    bool Connected = false;
    void* Handle = nullptr;  // the remote-call library's
};

// The process's connections; changed only under the API mutex. Empty without a remote-call library.
NameTree<RemoteConnection>& Connections();

// The connection to a route's server, made with the first use of its name in the process. Under the API mutex, while
// the remote-call library is active. Raises 1104, 1105, 1018 for a server of another age, 1015, or the status with
// which the server refused the greeting; the next use of the name tries again then.
RemoteConnection& ConnectionTo(const ServerRoute& route);

// Gives up every connection, whatever fails; failures are noted as 1106. Nothing uses them any more.
void DisconnectServers(FirstFailure& failure);

// Sends a request and returns the reply, which lies in `room` then. Raises 1105 when the remote-call library fails or
// the reply is damaged, and the status of a refusal.
ReceivedReply CallServer(const RemoteConnection& connection, std::span<const uint8_t> request, std::span<uint8_t> room,
                         std::span<TransferDescriptor* const> descriptors);

// The same for a message, with the data that travels beside it.
template <class Request, class... Descriptors>
typename Request::Results CallServer(const RemoteConnection& connection, const Request& request,
                                     Descriptors&&... descriptors) {
    using Results = typename Request::Results;
    const RequestBytes<Request> bytes = EncodeRequest(request);
    ReplyBytes<Results> room{};
    TransferDescriptor* const beside[sizeof...(descriptors) + 1] = {&descriptors...};
    const ReceivedReply reply = CallServer(connection, bytes, room, std::span(beside, sizeof...(descriptors)));
    const std::optional<Results> results = reply.template As<Results>();
    if (!results) {
        Raise(Code::CallFailed);
    }
    return *results;
}

}  // namespace qx
