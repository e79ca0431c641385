#include "support/scripted_server.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace qx_test {

std::string Hex(std::string_view bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::string FromHex(std::string_view digits) {
    std::string packed;
    std::copy_if(digits.begin(), digits.end(), std::back_inserter(packed), [](char c) { return c != ' '; });
    std::string bytes;
    for (size_t i = 0; i + 1 < packed.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(packed.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

namespace {

// What the interface fixes in a descriptor, in words.
std::string Describe(const qx::TransferDescriptor& descriptor) {
    const auto& words = descriptor.Words;
    if (words[0] == 0) {
        return "no transfer function";
    }
    switch (words[1]) {
        case 0:
            return "plain " + std::string(reinterpret_cast<const char*>(words[3]), words[2]);
        case 1:
            return (words[2] != 0 ? "receive " : "send ") + std::to_string(words[4]);
        default:
            return "kind " + std::to_string(words[1]);
    }
}

std::string PortInWords(uint32_t port) {
    return port == 0xFFFFFFFF ? "none" : std::to_string(port);
}

}  // namespace

ScriptedServer::ScriptedServer() {
    Answers[0].Reply = FromHex("01 030000") + std::string(16, '\0');
    Answers[1].Reply = FromHex("01 04030201");
    Answers[8].Reply = FromHex("01 05000000");
    Answers[10].Reply = '\1' + std::string(21, '\0');
    Answers[25].Reply = FromHex("01 00000000");
}

std::vector<std::string> ScriptedServer::TakeLog() {
    return std::exchange(Log, {});
}

int32_t ScriptedServer::Outcome(const std::string& function, uint32_t* error) const {
    const auto failing = Failing.find(function);
    if (failing == Failing.end()) {
        return 1;
    }
    *error = failing->second;
    return 0;
}

int32_t ScriptedServer::Initialize(uint32_t version[3], uint32_t* error) {
    Log.push_back("initialize " + std::to_string(version[0]) + '.' + std::to_string(version[1]) + '.' +
                  std::to_string(version[2]));
    std::copy_n(Version, 3, version);
    return Outcome("Initialize", error);
}

int32_t ScriptedServer::Create(std::string_view client, std::string_view server, const uint32_t (&numbers)[9],
                               void** object, uint32_t* error) {
    std::string line = "create " + std::string(client) + ' ' + std::string(server);
    for (const uint32_t number : numbers) {
        line += ' ' + std::to_string(number);
    }
    Log.push_back(line);
    *object = this;
    return Outcome("Create", error);
}

int32_t ScriptedServer::Connect(void*, std::string_view server, std::string_view pipe, uint32_t port, void*,
                                void** connection, uint32_t* error) {
    Log.push_back("connect " + std::string(server) + " '" + std::string(pipe) + "' " + PortInWords(port));
    *connection = &Log;
    return Outcome("Connect", error);
}

int32_t ScriptedServer::Call(void*, std::string_view request, uint32_t* replyLength, char* reply,
                             uint32_t descriptorCount, qx::TransferDescriptor* const* descriptors, uint32_t* error) {
    const std::span<qx::TransferDescriptor* const> given(descriptors, descriptorCount);
    std::string line = Hex(request.substr(0, 1)) + ' ' + Hex(request.substr(1));
    for (const qx::TransferDescriptor* descriptor : given) {
        line += ' ' + Describe(*descriptor);
    }
    Log.push_back(line);
    const Answer answer = Answers[static_cast<uint8_t>(request[0])];
    std::optional<uint32_t> failed = answer.Error;
    if (!failed && OnCall) {
        failed = OnCall(given);
    }
    if (failed) {
        *error = *failed;
        return 0;
    }
    std::memcpy(reply, answer.Reply.data(), std::min<size_t>(answer.Reply.size(), *replyLength));
    *replyLength = answer.ClaimedLength.value_or(static_cast<uint32_t>(answer.Reply.size()));
    return 1;
}

int32_t ScriptedServer::Disconnect(void*, uint32_t* error) {
    Log.push_back("disconnect");
    return Outcome("Disconnect", error);
}

int32_t ScriptedServer::Close(void*, uint32_t* error) {
    Log.push_back("close");
    return Outcome("Close", error);
}

int32_t ScriptedServer::Terminate(uint32_t* error) {
    Log.push_back("terminate");
    return Outcome("Terminate", error);
}

// An output is a descriptor and what follows it.
int32_t ScriptedServer::GetLocalStatistics(void*, uint32_t, uint32_t, qx::TransferDescriptor* names,
                                           qx::TransferDescriptor* values, uint32_t* error) {
    Log.push_back("statistics");
    if (OnStatistics) {
        OnStatistics(*reinterpret_cast<qx::AppendedOutput*>(names), *reinterpret_cast<qx::AppendedOutput*>(values));
    }
    return Outcome("GetLocalStatistics", error);
}

}  // namespace qx_test
