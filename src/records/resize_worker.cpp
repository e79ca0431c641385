#include "records/resize_worker.h"

#include "platform/platform.h"
#include "records/resize_step.h"
#include "runtime/status.h"
#include "storage/operation_context.h"
#include "storage/resize_queue.h"
#include "storage/select_lock.h"

namespace qx {

constinit ResizeWorker theResizeWorker;

namespace {

// One step for one file, if one is to be done and can be.
ResizeOutcome Resize(OpenFile& file) {
    if (file.CallerLocks > 0) {
        return ResizeOutcome::Nothing;  // attaching would wait for as long as the application likes
    }
    const PrimaryAttachment attachment(file);
    if (file.SelectCount > 0 || !(NeedsToExpand(file) || NeedsToContract(file))) {
        return ResizeOutcome::Nothing;
    }
    const ExclusiveSelectLock select(file);
    if (!select.IsHeld()) {
        return ResizeOutcome::Nothing;  // another process walks or clears the file, or changes it itself
    }
    const CounterLevels levels{.File = &file.Counters};
    OperationContext context(file, levels, Counter::AllocateFileDataErrors);
    if (NeedsToExpand(file)) {
        return Expand(context) ? ResizeOutcome::Expanded : ResizeOutcome::Nothing;
    }
    return NeedsToContract(file) && Contract(context) ? ResizeOutcome::Contracted : ResizeOutcome::Nothing;
}

// What goes wrong in a step is nobody's call to report; the file comes back when its load changes again.
void Work(void*) {
    ClaimMutex::Node node;
    while (OpenFile* file = theResizeQueue.Next(node)) {
        FirstFailure ignored;
        ResizeOutcome outcome = ResizeOutcome::Nothing;
        ignored.Run([&] { outcome = Resize(*file); });
        theResizeQueue.GiveBack(*file, node, outcome);
    }
    theResizeQueue.Leave();
}

}  // namespace

bool ResizeWorker::Start() {
    theResizeQueue.Open();
    module_ = thePlatform.Host->PinModule();
    if (module_ == nullptr) {
        return false;
    }
    thread_ = thePlatform.Threads->Start(Work, nullptr);
    if (thread_ == nullptr) {
        thePlatform.Host->UnpinModule(module_);
        return false;
    }
    return true;
}

void ResizeWorker::Stop() {
    theResizeQueue.Close();
    thePlatform.Threads->Join(thread_);
    thePlatform.Host->UnpinModule(module_);
}

}  // namespace qx
