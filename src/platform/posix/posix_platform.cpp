#include "platform/platform.h"
#include "platform/posix/posix_directory_service.h"
#include "platform/posix/posix_event_service.h"
#include "platform/posix/posix_file_service.h"
#include "platform/posix/posix_host_service.h"
#include "platform/posix/posix_memory_service.h"
#include "platform/posix/posix_module_service.h"
#include "platform/posix/posix_thread_service.h"

namespace qx {

namespace {
constinit PosixFileService posixFiles;
constinit PosixEventService posixEvents;
constinit PosixMemoryService posixMemory;
constinit PosixThreadService posixThreads;
constinit PosixClockService posixClock;
constinit PosixHostService posixHost;
constinit PosixDirectoryService posixDirectories;
constinit PosixModuleService posixModules;
}  // namespace

constinit Platform thePlatform{&posixFiles, &posixEvents, &posixMemory,      &posixThreads,
                               &posixClock, &posixHost,   &posixDirectories, &posixModules};

}  // namespace qx
