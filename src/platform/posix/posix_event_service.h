#pragma once

#include "platform/event_service.h"

namespace qx {

class PosixEventService final : public EventService {
  public:
    OsEvent* Create() override;
    void Close(OsEvent* event) override;
    void Signal(OsEvent* event) override;
    bool Reset(OsEvent* event) override;
    void Wait(OsEvent* event) override;
};

}  // namespace qx
