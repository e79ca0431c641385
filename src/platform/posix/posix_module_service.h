#pragma once

#include "platform/module_service.h"

namespace qx {

class PosixModuleService final : public ModuleService {
  public:
    OsModule* Load(const char* name) override;
    void* FunctionOf(OsModule* module, const char* name) override;
    void Unload(OsModule* module) override;
};

}  // namespace qx
