#include "support/answering_server.h"

#include <cstdio>
#include <cstring>
#include <signal.h>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "remote/remote_call_library.h"
#include "support/parcel.h"
#include "support/request_answers.h"

namespace qx_test {

namespace {

// The library's own errors, of which only that of a missing server means something to the client.
constexpr uint32_t kConnectionLost = 2001;
constexpr uint32_t kReplyTooLong = 2002;

// Begins with a byte that says whether to die, then the request and its data.
[[noreturn]] void Serve(int socket) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    RequestAnswers answers;
    Parcel request;
    while (ReceiveParcel(socket, &request)) {
        const auto death = static_cast<AnsweringServer::Death>(request.front()->at(0));
        request.erase(request.begin());
        const Parcel reply = answers.Answer(request);
        if (death == AnsweringServer::Death::WithinReply) {
            SendTornParcel(socket, reply);
        }
        if (death != AnsweringServer::Death::None || !SendParcel(socket, reply)) {
            break;
        }
    }
    ::_exit(0);
}

struct Transfer {
    uint32_t Length = 0;
    void* Address = nullptr;
    uint32_t Error = 0;
    bool Good;

    Transfer(qx::TransferDescriptor& descriptor, qx::TransferOperation operation, uint32_t length)
        : Good(reinterpret_cast<qx::TransferFunction>(descriptor.Words[0])(
                   static_cast<uint32_t>(operation), &descriptor, length, &Length, &Address, &Error) != 0) {}
};

// Plain buffers, and objects that do not wait for data.
bool HasDataToSend(const qx::TransferDescriptor& descriptor) {
    return descriptor.Words[1] == 0 || descriptor.Words[2] == 0;
}

}  // namespace

// The process begins before there is anything in the place of the remote-call library, so its own files are local.
AnsweringServer::AnsweringServer() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::runtime_error("no socket for the server");
    }
    std::fflush(nullptr);
    process_ = ::fork();
    if (process_ < 0) {
        throw std::runtime_error("no process for the server");
    }
    if (process_ == 0) {
        ::close(ends[0]);
        Serve(ends[1]);
    }
    ::close(ends[1]);
    socket_ = ends[0];
    inPlace_.emplace(*this);
}

AnsweringServer::~AnsweringServer() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
    ::close(socket_);
}

int32_t AnsweringServer::Initialize(uint32_t version[3], uint32_t*) {
    version[0] = 4;
    return 1;
}

int32_t AnsweringServer::Create(std::string_view, std::string_view, const uint32_t (&)[9], void** object, uint32_t*) {
    *object = this;
    return 1;
}

int32_t AnsweringServer::Connect(void*, std::string_view server, std::string_view, uint32_t, void*, void** connection,
                                 uint32_t* error) {
    *connection = this;
    *error = qx::kNoSuchServer;
    return server == kAnsweringServer ? 1 : 0;
}

int32_t AnsweringServer::Call(void*, std::string_view request, uint32_t* replyLength, char* reply,
                              uint32_t descriptorCount, qx::TransferDescriptor* const* descriptors, uint32_t* error) {
    const bool last = static_cast<qx::Opcode>(request[0]) == dieAt_;
    Parcel parcel = {std::string(1, static_cast<char>(last ? death_ : Death::None)), std::string(request)};
    for (uint32_t i = 0; i < descriptorCount; ++i) {
        parcel.emplace_back();
        if (HasDataToSend(*descriptors[i])) {
            const Transfer data(*descriptors[i], qx::TransferOperation::Send, 0);
            if (!data.Good) {
                *error = data.Error;
                return 0;
            }
            parcel.back().emplace(static_cast<const char*>(data.Address), data.Length);
        }
    }
    {
        const std::lock_guard lock(mutex_);
        if (!SendParcel(socket_, parcel) || !ReceiveParcel(socket_, &parcel) || parcel.size() != 1 + descriptorCount) {
            *error = kConnectionLost;
            return 0;
        }
    }
    for (uint32_t i = 0; i < descriptorCount; ++i) {
        if (const std::optional<std::string>& received = parcel[1 + i]) {
            const Transfer room(*descriptors[i], qx::TransferOperation::Receive,
                                static_cast<uint32_t>(received->size()));
            if (!room.Good) {
                *error = room.Error;
                return 0;
            }
            std::memcpy(room.Address, received->data(), received->size());
        }
    }
    const std::string& bytes = parcel[0].value();
    if (bytes.size() > *replyLength) {
        *error = kReplyTooLong;
        return 0;
    }
    std::memcpy(reply, bytes.data(), bytes.size());
    *replyLength = static_cast<uint32_t>(bytes.size());
    return 1;
}

int32_t AnsweringServer::Disconnect(void*, uint32_t*) {
    return 1;
}

int32_t AnsweringServer::Close(void*, uint32_t*) {
    return 1;
}

int32_t AnsweringServer::Terminate(uint32_t*) {
    return 1;
}

int32_t AnsweringServer::GetLocalStatistics(void*, uint32_t, uint32_t, qx::TransferDescriptor*, qx::TransferDescriptor*,
                                            uint32_t*) {
    return 1;
}

}  // namespace qx_test
