#pragma once

#include "platform/host_service.h"

namespace qx {

class PosixHostService final : public HostService {
  public:
    bool IsSupported() override;
    uint32_t ComputerName(char (&name)[16]) override;
    OsModule* PinModule() override;
    void UnpinModule(OsModule* module) override;
    bool OnFork(void (*inNewProcess)()) override;
};

}  // namespace qx
