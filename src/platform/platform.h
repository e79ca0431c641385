// The one seam to the operating system: everything that Corvane asks of it goes through these services. Tests put their
// own in place, so that any call can be made to fail.
#pragma once

#include "platform/clock_service.h"
#include "platform/directory_service.h"
#include "platform/event_service.h"
#include "platform/file_service.h"
#include "platform/host_service.h"
#include "platform/memory_service.h"
#include "platform/module_service.h"
#include "platform/thread_service.h"

namespace qx {

struct Platform {
    FileService* Files;
    EventService* Events;
    MemoryService* Memory;
    ThreadService* Threads;
    ClockService* Clock;
    HostService* Host;
    DirectoryService* Directories;
    ModuleService* Modules;
};

// The services in use; from the moment the module is loaded, those of the operating system. To be changed only while no
// call of the library is under way.
extern Platform thePlatform;

}  // namespace qx
