// The calls of the tests go to a client: another instance of the library, loaded from its shared object, for which
// every name of this computer lies on a server. That server is the engine that the tests are linked with, so what a
// test sees of the engine, and the failures that it orders, are those of the server.
#include <cstring>
#include <dlfcn.h>
#include <optional>
#include <stdexcept>

#include "remote/remote_call_library.h"
#include "runtime/library_record.h"
#include "support/remote/local_functions.h"
#include "support/remote/request_answers.h"
#include "support/remote_calls_in_place.h"

namespace qx_test {

namespace {

// The remote-call library's own errors, of which only that of a missing server means something to the client.
constexpr uint32_t kReplyTooLong = 2001;

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

class AnsweringServer final : public RemoteCalls {
    int32_t Initialize(uint32_t version[3], uint32_t*) override {
        version[0] = 4;
        return 1;
    }

    int32_t Create(std::string_view, std::string_view, const uint32_t (&)[9], void** object, uint32_t*) override {
        *object = this;
        return 1;
    }

    int32_t Connect(void*, std::string_view server, std::string_view, uint32_t, void*, void** connection,
                    uint32_t* error) override {
        *connection = this;
        *error = qx::kNoSuchServer;
        return server == qx::theLibrary.Host() ? 1 : 0;
    }

    int32_t Call(void*, std::string_view request, uint32_t* replyLength, char* reply, uint32_t descriptorCount,
                 qx::TransferDescriptor* const* descriptors, uint32_t* error) override {
        Parcel parcel = {std::string(request)};
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
        parcel = AnswerRequest(parcel);
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
        if (parcel[0]->size() > *replyLength) {
            *error = kReplyTooLong;
            return 0;
        }
        std::memcpy(reply, parcel[0]->data(), parcel[0]->size());
        *replyLength = static_cast<uint32_t>(parcel[0]->size());
        return 1;
    }

    int32_t Disconnect(void*, uint32_t*) override { return 1; }
    int32_t Close(void*, uint32_t*) override { return 1; }
    int32_t Terminate(uint32_t*) override { return 1; }
    int32_t GetLocalStatistics(void*, uint32_t, uint32_t, qx::TransferDescriptor*, qx::TransferDescriptor*,
                               uint32_t*) override {
        return 1;
    }
};

AnsweringServer theServer;
std::optional<RemoteCallsInPlace> theServerInPlace;

void* ClientFunction(const char* name) {
    static void* const module = ::dlopen(CORVANE_CLIENT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    void* function = module == nullptr ? nullptr : ::dlsym(module, name);
    if (function == nullptr) {
        throw std::runtime_error(::dlerror());
    }
    return function;
}

}  // namespace

// The function of that name in the client.
#define CLIENT(name)                                                                            \
    ([] {                                                                                       \
        static auto* const function = reinterpret_cast<decltype(&name)>(ClientFunction(#name)); \
        return function;                                                                        \
    }())

}  // namespace qx_test

extern "C" {

using namespace qx_test;

// While the server starts there is nothing in the place of the remote-call library, so its own files are local.
int32_t __wrap_QXInitialize(ApiVersionRecord* version, StatusRecord* status) {
    theServerInPlace.reset();
    if (local::Initialize(version, status) == 0) {
        return 0;
    }
    theServerInPlace.emplace(theServer);
    return CLIENT(QXInitialize)(version, status);
}

int32_t __wrap_QXTerminate(StatusRecord* status) {
    const int32_t result = CLIENT(QXTerminate)(status);
    StatusRecord ignored{};
    return local::Terminate(&ignored) != 0 ? result : 0;
}

// Calls on a session or file handle, alone or with one or two numbers.
#define ON_HANDLE(name)                                            \
    int32_t __wrap_##name(uint32_t handle, StatusRecord* status) { \
        return CLIENT(name)(handle, status);                       \
    }
#define WITH_NUMBER(name)                                                           \
    int32_t __wrap_##name(uint32_t handle, uint32_t number, StatusRecord* status) { \
        return CLIENT(name)(handle, number, status);                                \
    }
#define WITH_NUMBERS(name)                                                                          \
    int32_t __wrap_##name(uint32_t handle, uint32_t first, uint32_t second, StatusRecord* status) { \
        return CLIENT(name)(handle, first, second, status);                                         \
    }

ON_HANDLE(QXCloseSession)
ON_HANDLE(QXFlush)
ON_HANDLE(QXUnlockAll)
ON_HANDLE(QXCloseFile)
ON_HANDLE(QXClearFile)
ON_HANDLE(QXClearSelect)
ON_HANDLE(QXUnlockFile)
ON_HANDLE(QXSharedLockFile)
ON_HANDLE(QXExclusiveLockFile)
WITH_NUMBER(QXDeleteFile)
WITH_NUMBER(QXDeleteRecord)
WITH_NUMBER(QXReadNextKeyIdGroup)
WITH_NUMBER(QXReadPreviousKeyIdGroup)
WITH_NUMBER(QXSharedLockRecord)
WITH_NUMBER(QXExclusiveLockRecord)
WITH_NUMBER(QXUnlockRecord)
WITH_NUMBER(QXUnlockGroup)
WITH_NUMBERS(QXReadRecord)
WITH_NUMBERS(QXReadOnlyRecord)
WITH_NUMBERS(QXWriteRecord)
WITH_NUMBERS(QXLockGroup)

int32_t __wrap_QXOpenSession(BufferCallback callback, const SessionOptions* options, uint32_t* session,
                             StatusRecord* status) {
    return CLIENT(QXOpenSession)(callback, options, session, status);
}

int32_t __wrap_QXGetStatistics(uint32_t session, uint32_t kind, uint32_t path, uint32_t subjectHandle,
                               uint32_t reserved, uint32_t names, uint32_t values, StatusRecord* status) {
    return CLIENT(QXGetStatistics)(session, kind, path, subjectHandle, reserved, names, values, status);
}

int32_t __wrap_QXCreateFile(uint32_t session, uint32_t name, const CreateOptions* options, StatusRecord* status) {
    return CLIENT(QXCreateFile)(session, name, options, status);
}

int32_t __wrap_QXOpenFile(uint32_t session, uint32_t name, const OpenOptions* options, uint32_t* file,
                          StatusRecord* status) {
    return CLIENT(QXOpenFile)(session, name, options, file, status);
}

int32_t __wrap_QXGetFileHeader(uint32_t file, FileHeaderRecord* header, StatusRecord* status) {
    return CLIENT(QXGetFileHeader)(file, header, status);
}

int32_t __wrap_QXGetGroupNumber(uint32_t file, uint32_t key, uint32_t* group, StatusRecord* status) {
    return CLIENT(QXGetGroupNumber)(file, key, group, status);
}

int32_t __wrap_QXVerifyGroup(uint32_t file, uint32_t mode, uint32_t group, uint32_t statisticsReport,
                             uint32_t problemReport, StatusRecord* status) {
    return CLIENT(QXVerifyGroup)(file, mode, group, statisticsReport, problemReport, status);
}

}  // extern "C"
