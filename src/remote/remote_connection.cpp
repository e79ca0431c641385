#include "remote/remote_connection.h"

#include <cstddef>
#include <new>

#include "remote/remote_call_library.h"

namespace qx {

namespace {

// A server that is connected until this ends, unless the connection is kept.
class NewConnection {
  public:
    // Not connected when there is no such server.
    explicit NewConnection(const ServerRoute& route) : record_(theRecordHeap.Make<RemoteConnection>(route.Server)) {
        const RemoteError error =
            theRemoteCalls.Connect(route.Server, route.Pipe, route.Port, record_.get(), &record_->Handle);
        if (error && *error != kNoSuchServer) {
            Raise(Code::ConnectFailed, 0, *error);
        }
        record_->Connected = !error;
    }
    ~NewConnection() {
        if (record_ != nullptr && record_->Connected) {
            theRemoteCalls.Disconnect(record_->Handle);
        }
    }
    NewConnection(const NewConnection&) = delete;
    NewConnection& operator=(const NewConnection&) = delete;

    void Greet() const {
        if (record_->Connected && CallServer(*record_, GreetRequest{}).Major < kOldestProtocolMajor) {
            Raise(Code::BadVersion);
        }
    }

    RemoteConnection& Keep() {
        Connections().emplace(record_->Name, record_.get());
        return *record_.release();
    }

  private:
    OwnedRecord<RemoteConnection> record_;
};

}  // namespace

// Never ended: a program may exit while threads of its own are still inside the library.
NameTree<RemoteConnection>& Connections() {
    alignas(NameTree<RemoteConnection>) static std::byte storage[sizeof(NameTree<RemoteConnection>)];
    static auto* connections = new (storage) NameTree<RemoteConnection>;
    return *connections;
}

RemoteConnection& ConnectionTo(const ServerRoute& route) {
    const auto found = Connections().find(route.Server);
    if (found != Connections().end()) {
        return *found->second;
    }
    NewConnection connection(route);
    connection.Greet();
    return connection.Keep();
}

void DisconnectServers(FirstFailure& failure) {
    while (!Connections().empty()) {
        const OwnedRecord<RemoteConnection> connection(Connections().begin()->second);
        Connections().erase(Connections().begin());
        if (connection->Connected) {
            if (const RemoteError error = theRemoteCalls.Disconnect(connection->Handle)) {
                failure.Note(MakeStatus(Code::DisconnectFailed, 0, *error));
            }
        }
    }
}

ReceivedReply CallServer(const RemoteConnection& connection, std::span<const uint8_t> request, std::span<uint8_t> room,
                         std::span<TransferDescriptor* const> descriptors) {
    uint32_t length = 0;
    if (const RemoteError error = theRemoteCalls.Call(connection.Handle, request, room, &length, descriptors)) {
        Raise(Code::CallFailed, 0, *error);
    }
    if (length > room.size()) {
        Raise(Code::CallFailed);
    }
    const ReceivedReply reply{room.first(length)};
    if (reply.IsRefusal()) {
        const std::optional<StatusRecord> status = reply.Refusal();
        Raise(status ? *status : MakeStatus(Code::CallFailed));
    }
    return reply;
}

}  // namespace qx
