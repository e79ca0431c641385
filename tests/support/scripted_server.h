// The remote-call library played by the test: it notes what it is called with and answers as the test says.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "remote/remote_call_library.h"
#include "support/remote_calls_in_place.h"

namespace qx_test {

class ScriptedServer final : public RemoteCalls {
  public:
    // What a function of the library does.
    struct Answer {
        std::optional<uint32_t> Error = std::nullopt;  // fails with it
        std::string Reply = std::string(1, '\1');
        std::optional<uint32_t> ClaimedLength = std::nullopt;  // in place of the reply's
    };

    // Each call in words, in order: "connect SERVER PIPE 0", or the request in hexadecimal and its descriptors:
    // "0B 05000000 receive 2 send 1 plain SHARE\F".
    std::vector<std::string> Log;

    // The lines of the log since the last call for them.
    std::vector<std::string> TakeLog();

    uint32_t Version[3] = {4, 0, 0};
    std::map<std::string, uint32_t> Failing;  // functions that fail, such as "Create", and with which error
    std::map<uint8_t, Answer> Answers;        // to opcodes; others are answered by success without results

    // Run in every call that is not answered with an error, for data that travels; may return an error in its turn.
    std::function<std::optional<uint32_t>(std::span<qx::TransferDescriptor* const>)> OnCall;

    // Run when the library is asked for entries of its own, with the outputs to append to.
    std::function<void(qx::AppendedOutput& names, qx::AppendedOutput& values)> OnStatistics;

    // Replies that grant what the engine cannot go on without.
    ScriptedServer();

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

    int32_t Outcome(const std::string& function, uint32_t* error) const;

    RemoteCallsInPlace inPlace_{*this};
};

std::string Hex(std::string_view bytes);

// The bytes that hexadecimal digits stand for; spaces do not matter.
std::string FromHex(std::string_view digits);

}  // namespace qx_test
