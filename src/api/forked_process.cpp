#include "api/forked_process.h"

#include <new>

#include "files/file_cache.h"
#include "platform/platform.h"
#include "records/resize_worker.h"
#include "remote/remote_call_library.h"
#include "remote/remote_connection.h"
#include "runtime/library_record.h"
#include "runtime/lock_heap.h"
#include "runtime/record_heap.h"
#include "runtime/wait_event_pool.h"
#include "storage/resize_queue.h"
#include "volume/volume_record.h"

namespace qx {

namespace {

template <class Object>
void MakeAnew(Object& object) {
    new (&object) Object;
}

// Only the thread that forked is there. Any lock may be held, and any record half changed, by a thread that is not:
// nothing is looked at and nothing is freed.
void ForgetParent() {
    MakeAnew(theLibrary);
    MakeAnew(theRecordHeap);
    MakeAnew(theLockHeap);
    MakeAnew(theWaitEvents);
    MakeAnew(theProcessCounters);
    MakeAnew(theResizeQueue);
    MakeAnew(theResizeWorker);
    MakeAnew(Volumes());
    MakeAnew(theRemoteCalls);
    MakeAnew(Connections());
    ForgetIdleFiles();
}

}  // namespace

bool WatchForks() {
    static const bool watching = [] {
        Volumes();  // these are made by now, so that a new process finds them made
        Connections();
        return thePlatform.Host->OnFork(ForgetParent);
    }();
    return watching;
}

}  // namespace qx
