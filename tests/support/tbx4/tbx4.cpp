#include "support/tbx4/tbx4.h"

#define EXPORTED __attribute__((visibility("default")))

namespace {

qx_test::RemoteCalls* theCalls = nullptr;

}  // namespace

extern "C" {

EXPORTED void SetRemoteCalls(qx_test::RemoteCalls* calls) {
    theCalls = calls;
}

EXPORTED int32_t TBXInitialize(uint32_t version[3], uint32_t* error) {
    return theCalls != nullptr ? theCalls->Initialize(version, error) : 0;
}

EXPORTED int32_t TBXCreate(uint32_t clientLength, const char* client, uint32_t serverLength, const char* server,
                           uint32_t a, uint32_t b, uint32_t c, uint32_t d, uint32_t e, uint32_t f, uint32_t g,
                           uint32_t h, void** object, uint32_t i, uint32_t* error) {
    const uint32_t numbers[9] = {a, b, c, d, e, f, g, h, i};
    return theCalls->Create({client, clientLength}, {server, serverLength}, numbers, object, error);
}

EXPORTED int32_t TBXConnect(void* object, uint32_t serverLength, const char* server, uint32_t pipeLength,
                            const char* pipe, uint32_t port, void* context, void** connection, uint32_t* error) {
    return theCalls->Connect(object, {server, serverLength}, {pipe, pipeLength}, port, context, connection, error);
}

EXPORTED int32_t TBXCall(void* connection, uint32_t requestLength, const void* request, uint32_t* replyLength,
                         void* reply, uint32_t descriptorCount, qx::TransferDescriptor* const* descriptors,
                         uint32_t* error) {
    return theCalls->Call(connection, {static_cast<const char*>(request), requestLength}, replyLength,
                          static_cast<char*>(reply), descriptorCount, descriptors, error);
}

EXPORTED int32_t TBXDisconnect(void* connection, uint32_t* error) {
    return theCalls->Disconnect(connection, error);
}

EXPORTED int32_t TBXClose(void* object, uint32_t* error) {
    return theCalls->Close(object, error);
}

EXPORTED int32_t TBXTerminate(uint32_t* error) {
    return theCalls->Terminate(error);
}

EXPORTED int32_t TBXGetLocalStatistics(void* object, uint32_t one, uint32_t zero, qx::TransferDescriptor* names,
                                       qx::TransferDescriptor* values, uint32_t* error) {
    return theCalls->GetLocalStatistics(object, one, zero, names, values, error);
}

}  // extern "C"
