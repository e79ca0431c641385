// The remote-call library, a foreign one that carries requests to servers. It need not be there: without it there are
// local files only.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "platform/module_service.h"
#include "remote/transfer_descriptor.h"

namespace qx {

inline constexpr const char* kRemoteCallLibraryName = "libtbx4.so";

// The error number of the library that a call of it failed with; nothing for success.
using RemoteError = std::optional<uint32_t>;
inline constexpr uint32_t kNoSuchServer = 1005;

// One of the two outputs of a report that the library can append to: a descriptor made by AppendTransfer, and how many
// bytes were appended.
struct AppendedOutput {
    TransferDescriptor Descriptor;
    uintptr_t Appended = 0;
};

// The library's functions.
struct RemoteCallFunctions {
    int32_t (*Initialize)(uint32_t version[3], uint32_t* error);
    int32_t (*Create)(uint32_t clientNameLength, const char* clientName, uint32_t serverNameLength,
                      const char* serverName, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                      uint32_t, void** object, uint32_t, uint32_t* error);
    int32_t (*Connect)(void* object, uint32_t serverNameLength, const char* serverName, uint32_t pipeNameLength,
                       const char* pipeName, uint32_t port, void* context, void** connection, uint32_t* error);
    int32_t (*Call)(void* connection, uint32_t requestLength, const void* request, uint32_t* replyLength, void* reply,
                    uint32_t descriptorCount, TransferDescriptor* const* descriptors, uint32_t* error);
    int32_t (*Disconnect)(void* connection, uint32_t* error);
    int32_t (*Close)(void* object, uint32_t* error);
    int32_t (*Terminate)(uint32_t* error);
    int32_t (*GetLocalStatistics)(void* object, uint32_t one, uint32_t zero, TransferDescriptor* names,
                                  TransferDescriptor* values, uint32_t* error);
};

class RemoteCallLibrary {
  public:
    // Looks for the library and starts it. One that is missing, older than version 4 or fails to start is left alone.
    void Start();
    // Undoes that; nothing is connected any more.
    void Stop();
    // The same for a start of Corvane that has failed.
    void Abandon();

    bool IsActive() const { return active_; }

    RemoteError Connect(std::string_view server, std::string_view pipe, uint32_t port, void* context,
                        void** connection);
    RemoteError Disconnect(void* connection);

    // `replyLength` is what the library says it received, be that within `reply` or not.
    RemoteError Call(void* connection, std::span<const uint8_t> request, std::span<uint8_t> reply,
                     uint32_t* replyLength, std::span<TransferDescriptor* const> descriptors);

    // Lets the library append entries of its own to a report.
    RemoteError GetLocalStatistics(AppendedOutput& names, AppendedOutput& values);

  private:
    bool Load();
    void Unload();
    bool InitializeLibrary();
    bool CreateObject();

    OsModule* module_ = nullptr;
    RemoteCallFunctions functions_{};
    bool active_ = false;
    void* object_ = nullptr;
};

extern RemoteCallLibrary theRemoteCalls;

}  // namespace qx
