#include "support/remote_calls_in_place.h"

#include <dlfcn.h>
#include <stdexcept>

#include "remote/remote_call_library.h"

namespace qx_test {

RemoteCallsInPlace::RemoteCallsInPlace(RemoteCalls& calls)
    : module_(::dlopen(qx::kRemoteCallLibraryName, RTLD_NOW | RTLD_LOCAL)) {
    if (module_ == nullptr) {
        throw std::runtime_error(::dlerror());
    }
    set_ = reinterpret_cast<SetRemoteCallsFunction>(::dlsym(module_, "SetRemoteCalls"));
    set_(&calls);
}

RemoteCallsInPlace::~RemoteCallsInPlace() {
    set_(nullptr);
    ::dlclose(module_);
}

}  // namespace qx_test
