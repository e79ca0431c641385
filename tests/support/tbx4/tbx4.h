// The stand-in for the remote-call library: a shared object with its functions, which hands every call to an object
// that the test sets. Without one it fails to start, as if it were not there.
#pragma once

#include <cstdint>
#include <string_view>

#include "remote/transfer_descriptor.h"

namespace qx_test {

// Results as those of the C functions: 0 for failure.
class RemoteCalls {
  public:
    virtual ~RemoteCalls() = default;

    virtual int32_t Initialize(uint32_t version[3], uint32_t* error) = 0;
    virtual int32_t Create(std::string_view client, std::string_view server, const uint32_t (&numbers)[9],
                           void** object, uint32_t* error) = 0;
    virtual int32_t Connect(void* object, std::string_view server, std::string_view pipe, uint32_t port, void* context,
                            void** connection, uint32_t* error) = 0;
    virtual int32_t Call(void* connection, std::string_view request, uint32_t* replyLength, char* reply,
                         uint32_t descriptorCount, qx::TransferDescriptor* const* descriptors, uint32_t* error) = 0;
    virtual int32_t Disconnect(void* connection, uint32_t* error) = 0;
    virtual int32_t Close(void* object, uint32_t* error) = 0;
    virtual int32_t Terminate(uint32_t* error) = 0;
    virtual int32_t GetLocalStatistics(void* object, uint32_t one, uint32_t zero, qx::TransferDescriptor* names,
                                       qx::TransferDescriptor* values, uint32_t* error) = 0;
};

// Exported by the shared object; null for none.
extern "C" using SetRemoteCallsFunction = void(*)(RemoteCalls * calls);

}  // namespace qx_test
