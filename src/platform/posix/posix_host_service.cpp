#include "platform/posix/posix_host_service.h"

#include <dlfcn.h>
#include <link.h>
#include <pthread.h>
#include <unistd.h>

#include "platform/ascii_case.h"
#include "platform/posix/posix_descriptors.h"

namespace qx {

namespace {

// An address inside this module.
const char kAnchor = 0;

void (*atFork)() = nullptr;

}  // namespace

bool PosixHostService::IsSupported() {
    return true;
}

uint32_t PosixHostService::ComputerName(char (&name)[16]) {
    char full[256] = {};
    if (::gethostname(full, sizeof full - 1) != 0) {
        return 0;
    }
    uint32_t length = 0;
    while (length < sizeof name - 1 && full[length] != '\0' && full[length] != '.') {
        name[length] = UpperCase(full[length]);
        ++length;
    }
    return length;
}

// The handle of the main program keeps nothing loaded that could go away, but answers the same calls.
OsModule* PosixHostService::PinModule() {
    Dl_info info{};
    void* map = nullptr;
    if (::dladdr1(&kAnchor, &info, &map, RTLD_DL_LINKMAP) == 0 || map == nullptr) {
        return nullptr;
    }
    const char* path = static_cast<const link_map*>(map)->l_name;
    return static_cast<OsModule*>(::dlopen(path[0] == '\0' ? nullptr : path, RTLD_NOW | RTLD_NOLOAD));
}

void PosixHostService::UnpinModule(OsModule* module) {
    ::dlclose(module);
}

bool PosixHostService::OnFork(void (*inNewProcess)()) {
    atFork = inNewProcess;
    const auto inChild = [] {
        CloseInheritedDescriptors();
        atFork();
    };
    return ::pthread_atfork(nullptr, nullptr, inChild) == 0;
}

}  // namespace qx
