#include "runtime/library_record.h"

#include "platform/platform.h"
#include "runtime/lock_heap.h"
#include "runtime/record_heap.h"
#include "runtime/status.h"
#include "runtime/wait_event_pool.h"

namespace qx {

constinit LibraryRecord theLibrary;

namespace {

// Detail 2 of 1007.
enum SetUpStep : uint32_t { kUnsupportedPlatform = 2, kRecordHeap = 3, kWaitEvents = 4, kLockHeap = 5 };

[[noreturn]] void FailSetUp(SetUpStep step) {
    Raise(Code::SetUpFailed, 0, step);
}

}  // namespace

void SetUpProcess() {
    if (theLibrary.SetUpDone) {
        return;
    }
    if (!thePlatform.Host->IsSupported()) {
        FailSetUp(kUnsupportedPlatform);
    }
    if (!theRecordHeap.Create()) {
        FailSetUp(kRecordHeap);
    }
    if (!theWaitEvents.Create()) {
        theRecordHeap.Destroy();
        FailSetUp(kWaitEvents);
    }
    if (!theLockHeap.Create()) {
        theWaitEvents.Destroy();
        theRecordHeap.Destroy();
        FailSetUp(kLockHeap);
    }
    theLibrary.ComputerNameLength = thePlatform.Host->ComputerName(theLibrary.ComputerName);
    theLibrary.SetUpDone = true;
}

void TearDownProcess() {
    if (!theLibrary.SetUpDone) {
        return;
    }
    theWaitEvents.Destroy();
    theLockHeap.Destroy();
    theRecordHeap.Destroy();
    theLibrary.SetUpDone = false;
}

}  // namespace qx
