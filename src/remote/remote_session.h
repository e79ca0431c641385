// A session's counterparts on servers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "remote/remote_connection.h"
#include "runtime/handle_list.h"
#include "runtime/session_record.h"
#include "volume/canonical_path.h"

namespace qx {

// One for each server that a session uses; it lives until the session is closed.
struct RemoteSession {
    explicit RemoteSession(RemoteConnection& connection) : Connection(connection) {}

    RemoteConnection& Connection;
    uint32_t ServerSession = 0;  // the server's handle of the session
    RemoteSession* NextOfSession = nullptr;
    HandleList Files;  // the session's handles on files of this server
};

// A name that a server answers for.
struct ServedName {
    RemoteSession& Session;
    std::string Name;  // as the server knows it
};

// Whether a server answers for a path: the connection and the session on it are made when they are needed first.
// Nothing when the path is local. Under the API mutex; raises what connecting and opening a session on the server
// raise.
std::optional<ServedName> FindServer(SessionRecord& session, const CanonicalPath& path);

// Opcode 4 or 5, to every server that the session uses, whatever fails on the way; failures are noted.
void UnlockAllOnServers(const SessionRecord& session, FirstFailure& failure);
void FlushServers(const SessionRecord& session, FirstFailure& failure);

// Closes the session on every server, whatever fails. It has no files there any more. Failures are noted.
void CloseRemoteSessions(SessionRecord& session, FirstFailure& failure);

}  // namespace qx
