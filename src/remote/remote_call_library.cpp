#include "remote/remote_call_library.h"

#include "platform/platform.h"

namespace qx {

constinit RemoteCallLibrary theRemoteCalls;

namespace {

constexpr std::string_view kClientName = "CorvaneClient";
constexpr std::string_view kServerName = "CorvaneServer";

constexpr uint32_t kOldestVersion = 0x40000;  // 4.0.0, packed

uint32_t Length(std::string_view text) {
    return static_cast<uint32_t>(text.size());
}

// Runs a function of the library, which stores its error number through the pointer that it is given.
template <class Function>
RemoteError Try(Function&& function) {
    uint32_t error = 0;
    return function(&error) != 0 ? RemoteError() : RemoteError(error);
}

template <class Function>
bool Find(OsModule* module, const char* name, Function*& function) {
    function = reinterpret_cast<Function*>(thePlatform.Modules->FunctionOf(module, name));
    return function != nullptr;
}

}  // namespace

bool RemoteCallLibrary::Load() {
    module_ = thePlatform.Modules->Load(kRemoteCallLibraryName);
    if (module_ == nullptr) {
        return false;
    }
    RemoteCallFunctions& f = functions_;
    return Find(module_, "TBXInitialize", f.Initialize) && Find(module_, "TBXCreate", f.Create) &&
           Find(module_, "TBXConnect", f.Connect) && Find(module_, "TBXCall", f.Call) &&
           Find(module_, "TBXDisconnect", f.Disconnect) && Find(module_, "TBXClose", f.Close) &&
           Find(module_, "TBXTerminate", f.Terminate) && Find(module_, "TBXGetLocalStatistics", f.GetLocalStatistics);
}

void RemoteCallLibrary::Unload() {
    active_ = false;
    object_ = nullptr;
    if (module_ != nullptr) {
        thePlatform.Modules->Unload(module_);
        module_ = nullptr;
    }
}

bool RemoteCallLibrary::InitializeLibrary() {
    uint32_t version[3] = {4, 0, 0};
    if (Try([&](uint32_t* error) { return functions_.Initialize(version, error); })) {
        return false;
    }
    if ((version[0] << 16) + (version[1] << 8) + version[2] >= kOldestVersion && CreateObject()) {
        return true;
    }
    Try([&](uint32_t* error) { return functions_.Terminate(error); });
    return false;
}

bool RemoteCallLibrary::CreateObject() {
    return !Try([&](uint32_t* error) {
        return functions_.Create(Length(kClientName), kClientName.data(), Length(kServerName), kServerName.data(), 0, 0,
                                 0xFFFFFFFF, 0, 0, 0, 0, 1, &object_, 0, error);
    });
}

void RemoteCallLibrary::Start() {
    active_ = Load() && InitializeLibrary();
    if (!active_) {
        Unload();
    }
}

void RemoteCallLibrary::Stop() {
    if (active_) {
        Try([&](uint32_t* error) { return functions_.Close(object_, error); });
        Abandon();
    }
}

void RemoteCallLibrary::Abandon() {
    if (active_) {
        Try([&](uint32_t* error) { return functions_.Terminate(error); });
        Unload();
    }
}

RemoteError RemoteCallLibrary::Connect(std::string_view server, std::string_view pipe, uint32_t port, void* context,
                                       void** connection) {
    return Try([&](uint32_t* error) {
        return functions_.Connect(object_, Length(server), server.data(), Length(pipe), pipe.data(), port, context,
                                  connection, error);
    });
}

RemoteError RemoteCallLibrary::Disconnect(void* connection) {
    return Try([&](uint32_t* error) { return functions_.Disconnect(connection, error); });
}

RemoteError RemoteCallLibrary::Call(void* connection, std::span<const uint8_t> request, std::span<uint8_t> reply,
                                    uint32_t* replyLength, std::span<TransferDescriptor* const> descriptors) {
    *replyLength = static_cast<uint32_t>(reply.size());
    return Try([&](uint32_t* error) {
        return functions_.Call(connection, static_cast<uint32_t>(request.size()), request.data(), replyLength,
                               reply.data(), static_cast<uint32_t>(descriptors.size()), descriptors.data(), error);
    });
}

RemoteError RemoteCallLibrary::GetLocalStatistics(AppendedOutput& names, AppendedOutput& values) {
    return Try([&](uint32_t* error) {
        return functions_.GetLocalStatistics(object_, 1, 0, &names.Descriptor, &values.Descriptor, error);
    });
}

}  // namespace qx
