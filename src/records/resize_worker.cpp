#include "records/resize_worker.h"

#include "platform/platform.h"
#include "records/resize_step.h"
#include "runtime/status.h"
#include "storage/operation_context.h"
#include "storage/resize_queue.h"

namespace qx {

constinit ResizeWorker theResizeWorker;

namespace {

// Owns the structure mutex of a file that the queue has handed out.
class StructureOwner {
  public:
    StructureOwner(OpenFile& file, ClaimMutex::Node& node) : file_(file), node_(node) {}
    ~StructureOwner() { file_.StructureMutex.Release(node_); }
    StructureOwner(const StructureOwner&) = delete;
    StructureOwner& operator=(const StructureOwner&) = delete;

  private:
    OpenFile& file_;
    ClaimMutex::Node& node_;
};

// One step for one file, and back to the end of the queue if that was not enough.
void Resize(OpenFile& file) {
    if (file.CallerLocks > 0) {
        return;  // attaching would wait for as long as the application likes
    }
    const PrimaryAttachment attachment(file);
    CounterLevels levels;
    levels.Volume = &file.Volume.Counters;
    levels.File = &file.Counters;
    OperationContext context(file, levels);
    if (file.SelectCount > 0) {
        return;
    }
    if (NeedsToExpand(file)) {
        if (Expand(context) && NeedsToExpand(file)) {
            theResizeQueue.PutBack(file);
        }
    } else if (NeedsToContract(file)) {
        if (Contract(context) && NeedsToContract(file)) {
            theResizeQueue.PutBack(file);
        }
    }
}

// What goes wrong in a step is nobody's call to report; the file comes back when its load changes again.
void Work(void*) {
    ClaimMutex::Node node;
    while (OpenFile* file = theResizeQueue.Next(node)) {
        const StructureOwner owner(*file, node);
        StatusRecord ignored{};
        RunCatching(ignored, [&] {
            Resize(*file);
            return true;
        });
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
