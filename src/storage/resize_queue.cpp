#include "storage/resize_queue.h"

#include <optional>

#include "runtime/status.h"
#include "storage/layout/frame_header.h"

namespace qx {

namespace {

constexpr uint32_t kEmptyGroupBytes = kPrimaryHeaderLength + 1;

}  // namespace

constinit ResizeQueue theResizeQueue;

// A threshold that an empty group passes would have the file grow for ever; no file is made with one.
bool NeedsToExpand(OpenFile& file) {
    return file.SizeLock <= 1 && file.ThresholdBytes > kEmptyGroupBytes &&
           file.Counts.NewAlpha() > uint64_t{file.Modulo} * file.ThresholdBytes;
}

bool NeedsToContract(OpenFile& file) {
    return file.SizeLock == 0 && file.Counts.NewAlpha() < uint64_t{file.Modulo - 1} * file.MergeBytes;
}

// The mutex is tried under the lock that it is given back under: a call that finds the worker at the file has it look
// at the load once more. Until the step is done nobody can tell what the load will ask for.
void ResizeQueue::Check(OpenFile& file) {
    if (atWork_ != &file && !NeedsToExpand(file) && !NeedsToContract(file)) {
        return;
    }
    const SpinHold hold(lock_);
    const OptionalClaimHold structure = OptionalClaimHold::Try(file.StructureMutex);
    if (!structure && atWork_ == &file) {
        askedAgain_ = true;
    }
    if (!structure || file.IsQueued || file.OpenedReadOnly || file.SelectCount > 0 || file.CallerLocks > 0) {
        return;
    }
    if (NeedsToExpand(file) || NeedsToContract(file)) {
        Append(file);
        if (asleep_) {
            asleep_ = false;
            theWaitEvents.Signal(wakeEvent_);
        }
    }
}

void ResizeQueue::GiveBack(OpenFile& file, ClaimMutex::Node& node, ResizeOutcome outcome) {
    const SpinHold hold(lock_);
    const bool expand = askedAgain_ || outcome == ResizeOutcome::Expanded;
    const bool contract = askedAgain_ || outcome == ResizeOutcome::Contracted;
    if ((expand && NeedsToExpand(file)) || (contract && NeedsToContract(file))) {
        Append(file);
    }
    atWork_ = nullptr;
    file.StructureMutex.Release(node);
}

void ResizeQueue::Append(OpenFile& file) {
    file.IsQueued = true;
    file.NextQueued = nullptr;
    (tail_ == nullptr ? head_ : tail_->NextQueued) = &file;
    tail_ = &file;
}

void ResizeQueue::Remove(OpenFile& file) {
    const SpinHold hold(lock_);
    if (file.IsQueued) {
        Unlink(file);
    }
}

void ResizeQueue::Unlink(OpenFile& file) {
    OpenFile* previous = nullptr;
    for (OpenFile* at = head_; at != &file; at = at->NextQueued) {
        previous = at;
    }
    (previous == nullptr ? head_ : previous->NextQueued) = file.NextQueued;
    if (tail_ == &file) {
        tail_ = previous;
    }
    file.IsQueued = false;
}

OpenFile* ResizeQueue::Next(ClaimMutex::Node& node) {
    const SpinHold hold(lock_);
    while (!stopping_) {
        if (head_ == nullptr) {
            if (!Sleep()) {
                return nullptr;
            }
            continue;
        }
        OpenFile* file = head_;
        Unlink(*file);
        if (file->StructureMutex.TryClaim(node)) {
            atWork_ = file;
            askedAgain_ = false;
            return file;
        }
    }
    return nullptr;
}

// Under the lock, which is given up while asleep. False when there is no event to sleep on.
bool ResizeQueue::Sleep() {
    const std::optional<EventIndex> event = theWaitEvents.Take();
    if (!event) {
        return false;
    }
    wakeEvent_ = *event;
    asleep_ = true;
    lock_.Release();
    theWaitEvents.Wait(*event);
    lock_.Acquire();
    return true;
}

void ResizeQueue::Open() {
    head_ = nullptr;
    tail_ = nullptr;
    atWork_ = nullptr;
    stopping_ = false;
    asleep_ = false;
    alive_ = true;
}

void ResizeQueue::Leave() {
    const SpinHold hold(lock_);
    alive_ = false;
    if (stopping_) {
        theWaitEvents.Signal(terminatorEvent_);
    }
}

void ResizeQueue::Close() {
    lock_.Acquire();
    if (!alive_) {
        lock_.Release();
        return;
    }
    const std::optional<EventIndex> event = theWaitEvents.Take();
    if (!event) {
        lock_.Release();
        Raise(Code::NoMemory);
    }
    terminatorEvent_ = *event;
    stopping_ = true;
    if (asleep_) {
        asleep_ = false;
        theWaitEvents.Signal(wakeEvent_);
    }
    lock_.Release();
    theWaitEvents.Wait(terminatorEvent_);
}

}  // namespace qx
