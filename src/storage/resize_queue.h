// The files whose number of groups is to change, in the order in which they asked for it.
#pragma once

#include <atomic>
#include <cstdint>

#include "runtime/claim_mutex.h"
#include "runtime/spin_lock.h"
#include "runtime/wait_event_pool.h"
#include "storage/open_file.h"

namespace qx {

// Whether a file's load asks for another group, or for one less.
bool NeedsToExpand(OpenFile& file);
bool NeedsToContract(OpenFile& file);

// What the worker has done for a file.
enum class ResizeOutcome : uint8_t { Nothing, Expanded, Contracted };

// Filled by calls that change a file's load, emptied by the worker. A file is on it at most once.
class ResizeQueue {
  public:
    // Puts the file on the queue if it has become too full or too empty and nothing holds its number of groups still.
    // Never waits: a file that is being resized, cleared or walked is left out.
    void Check(OpenFile& file);

    // Takes the file off the queue if it is there.
    void Remove(OpenFile& file);

    // The worker's side. Waits for a file and owns its structure mutex through `node` when it returns one; null when
    // the worker is to end. A file whose mutex is taken is dropped from the queue.
    OpenFile* Next(ClaimMutex::Node& node);

    // Gives the file's structure mutex up, and puts the file at the end of the queue if it needs another step of the
    // kind that was done, or any since a call has asked for it meanwhile. A step may leave a load that asks for the
    // opposite one by itself; taking that up too could go on for ever.
    void GiveBack(OpenFile& file, ClaimMutex::Node& node, ResizeOutcome outcome);

    // Called once the worker will call nothing here any more.
    void Leave();

    // Makes the queue ready for a worker.
    void Open();

    // Tells the worker to end after the step that it is doing and waits until it has. Raises 1015, and the worker goes
    // on, when there is no event to wait on.
    void Close();

  private:
    void Append(OpenFile& file);
    void Unlink(OpenFile& file);
    bool Sleep();

    SpinLock lock_;  // the worker lock: everything here, and the links in the files
    OpenFile* head_ = nullptr;
    OpenFile* tail_ = nullptr;
    std::atomic<OpenFile*> atWork_{nullptr};  // that the worker has taken
    bool askedAgain_ = false;                 // for that file, since it was taken
    bool stopping_ = false;
    bool alive_ = false;
    bool asleep_ = false;
    EventIndex wakeEvent_ = 0;
    EventIndex terminatorEvent_ = 0;
};

extern ResizeQueue theResizeQueue;

}  // namespace qx
