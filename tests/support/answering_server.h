// A server that answers every request by calling the library on local files, in a process of its own. The requests come
// to it through a socket, from an object that stands in the place of the remote-call library in the test's process.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string_view>
#include <sys/types.h>

#include "remote/opcode.h"
#include "support/remote_calls_in_place.h"

namespace qx_test {

// The name of the server; there is none with another name. \\SERVER/dir/file is /dir/file, as long as upper and lower
// case of its first directory do not matter.
inline constexpr std::string_view kAnsweringServer = "SERVER";

// To be made while the test has no other threads, so before it starts the library.
class AnsweringServer final : public RemoteCalls {
  public:
    AnsweringServer();
    ~AnsweringServer() override;
    AnsweringServer(const AnsweringServer&) = delete;
    AnsweringServer& operator=(const AnsweringServer&) = delete;

    // What becomes of the server at a request: it does its work, and is gone before it replies or while it does.
    enum class Death : char { None, BeforeReply, WithinReply };

    void DieAt(qx::Opcode opcode, Death death) {
        dieAt_ = opcode;
        death_ = death;
    }

  private:
    int32_t Initialize(uint32_t version[3], uint32_t* error) override;
    int32_t Create(std::string_view client, std::string_view server, const uint32_t (&numbers)[9], void** object,
                   uint32_t* error) override;
    int32_t Connect(void* object, std::string_view server, std::string_view pipe, uint32_t port, void* context,
                    void** connection, uint32_t* error) override;
    int32_t Call(void* connection, std::string_view request, uint32_t* replyLength, char* reply,
                 uint32_t descriptorCount, qx::TransferDescriptor* const* descriptors, uint32_t* error) override;
    int32_t Disconnect(void* connection, uint32_t* error) override;
    int32_t Close(void* object, uint32_t* error) override;
    int32_t Terminate(uint32_t* error) override;
    int32_t GetLocalStatistics(void* object, uint32_t one, uint32_t zero, qx::TransferDescriptor* names,
                               qx::TransferDescriptor* values, uint32_t* error) override;

    std::mutex mutex_;  // one call at a time
    int socket_ = -1;
    pid_t process_ = -1;
    qx::Opcode dieAt_ = qx::Opcode::Greet;
    Death death_ = Death::None;
    std::optional<RemoteCallsInPlace> inPlace_;
};

}  // namespace qx_test
