#include "platform/posix/posix_module_service.h"

#include <dlfcn.h>

namespace qx {

OsModule* PosixModuleService::Load(const char* name) {
    return static_cast<OsModule*>(::dlopen(name, RTLD_NOW | RTLD_LOCAL));
}

void* PosixModuleService::FunctionOf(OsModule* module, const char* name) {
    return ::dlsym(module, name);
}

void PosixModuleService::Unload(OsModule* module) {
    ::dlclose(module);
}

}  // namespace qx
