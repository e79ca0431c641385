// Manual-reset events on which threads of the process wait.
#pragma once

namespace qx {

class OsEvent;

class EventService {
  public:
    virtual ~EventService() = default;

    // A new event, not signalled; null when there are no resources for one.
    virtual OsEvent* Create() = 0;
    virtual void Close(OsEvent* event) = 0;

    virtual void Signal(OsEvent* event) = 0;
    virtual bool Reset(OsEvent* event) = 0;

    // Returns once the event is signalled, which it stays until it is reset.
    virtual void Wait(OsEvent* event) = 0;
};

}  // namespace qx
