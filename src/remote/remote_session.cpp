#include "remote/remote_session.h"

#include <cstring>
#include <utility>

#include "remote/remote_call_library.h"

namespace qx {

namespace {

OpenSessionRequest OpeningOf(const SessionRecord& session) {
    OpenSessionRequest request;
    request.MaximumRecordSize = session.MaximumRecordSize;
    request.MaximumIdentifierSessions = Saturated<uint16_t>(session.MaximumIdentifierSessions);
    request.IdentifierLength = static_cast<uint16_t>(session.IdentifierLength);
    std::memcpy(request.Identifier.data(), session.Identifier, session.IdentifierLength);
    return request;
}

// In the order in which the session came to use them.
RemoteSession& SessionOn(RemoteConnection& connection, SessionRecord& session) {
    RemoteSession** end = &session.RemoteSessions;
    for (; *end != nullptr; end = &(*end)->NextOfSession) {
        if (&(*end)->Connection == &connection) {
            return **end;
        }
    }
    OwnedRecord<RemoteSession> made(theRecordHeap.Make<RemoteSession>(connection));
    made->ServerSession = CallServer(connection, OpeningOf(session)).Number;
    *end = made.release();
    return **end;
}

template <Opcode opcode>
void TellServers(const SessionRecord& session, FirstFailure& failure) {
    for (const RemoteSession* remote = session.RemoteSessions; remote != nullptr; remote = remote->NextOfSession) {
        failure.Run([&] { CallServer(remote->Connection, SessionRequest<opcode>{remote->ServerSession}); });
    }
}

}  // namespace

std::optional<ServedName> FindServer(SessionRecord& session, const CanonicalPath& path) {
    if (!theRemoteCalls.IsActive()) {
        return std::nullopt;
    }
    ServerRoute route = RouteOf(path);
    if (route.Server.empty()) {
        return std::nullopt;
    }
    RemoteConnection& connection = ConnectionTo(route);
    if (!connection.Connected) {
        return std::nullopt;
    }
    return ServedName{SessionOn(connection, session), std::move(route.Name)};
}

void UnlockAllOnServers(const SessionRecord& session, FirstFailure& failure) {
    TellServers<Opcode::UnlockAll>(session, failure);
}

void FlushServers(const SessionRecord& session, FirstFailure& failure) {
    TellServers<Opcode::Flush>(session, failure);
}

void CloseRemoteSessions(SessionRecord& session, FirstFailure& failure) {
    while (session.RemoteSessions != nullptr) {
        const OwnedRecord<RemoteSession> remote(session.RemoteSessions);
        session.RemoteSessions = remote->NextOfSession;
        failure.Run(
            [&] { CallServer(remote->Connection, SessionRequest<Opcode::CloseSession>{remote->ServerSession}); });
    }
}

}  // namespace qx
