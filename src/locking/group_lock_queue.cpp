#include "locking/group_lock_queue.h"

#include <optional>

namespace qx {

namespace {

bool Overlap(const GroupLockRequest& a, const GroupLockRequest& b) {
    return a.Group <= b.LastGroup && b.Group <= a.LastGroup;
}

}  // namespace

bool GroupLockQueue::Lock(GroupLockRequest& request, uint32_t group, bool exclusive, const CounterLevels& levels) {
    levels.CountWork(Counter::GroupLocks);
    request.Group = group;
    request.LastGroup = group;
    request.Exclusive = exclusive;
    return Enqueue(request, levels);
}

bool GroupLockQueue::LockRow(GroupLockRequest& request, uint32_t first, uint32_t last, const CounterLevels& levels) {
    request.Group = first;
    request.LastGroup = last;
    request.Exclusive = true;
    return Enqueue(request, levels);
}

// Whether one of the requests before it, or of all if it is not queued yet, conflicts with the request.
bool GroupLockQueue::MustWait(const GroupLockRequest& request) const {
    for (const GroupLockRequest* at = head_; at != nullptr && at != &request; at = at->Next) {
        if ((request.Exclusive || at->Exclusive) && Overlap(request, *at)) {
            return true;
        }
    }
    return false;
}

bool GroupLockQueue::Enqueue(GroupLockRequest& request, const CounterLevels& levels) {
    request.Granted = false;
    request.Next = nullptr;
    lock_.Acquire();
    const bool wait = MustWait(request);
    if (wait) {
        const std::optional<EventIndex> event = theWaitEvents.Take();
        if (!event) {
            lock_.Release();
            levels.CountWork(Counter::GroupLockInitSuspendErrors);
            return false;
        }
        request.Event = *event;
    }
    request.Granted = !wait;
    GroupLockRequest** end = &head_;
    while (*end != nullptr) {
        end = &(*end)->Next;
    }
    *end = &request;
    lock_.Release();
    if (wait) {
        levels.CountWork(Counter::GroupLockSuspends);
        theWaitEvents.Wait(request.Event);
    }
    return true;
}

void GroupLockQueue::Unlock(GroupLockRequest& request, const CounterLevels& levels) {
    if (request.Group == request.LastGroup) {
        levels.CountWork(Counter::GroupUnlocks);
    }
    Withdraw(request, levels);
}

void GroupLockQueue::Withdraw(GroupLockRequest& request, const CounterLevels& levels) {
    const SpinHold hold(lock_);
    GroupLockRequest** link = &head_;
    while (*link != &request) {
        link = &(*link)->Next;
    }
    *link = request.Next;
    request.Granted = false;
    WakeSuccessors(request, levels);
}

// The next exclusive request of the group, or the run of shared ones before it, once nothing stands before them.
void GroupLockQueue::WakeSuccessors(const GroupLockRequest& removed, const CounterLevels& levels) {
    for (GroupLockRequest* next = removed.Next; next != nullptr; next = next->Next) {
        if (!next->Granted && Overlap(*next, removed) && !MustWait(*next)) {
            levels.CountWork(Counter::GroupUnlockResumes);
            next->Granted = true;
            theWaitEvents.Signal(next->Event);
        }
    }
}

bool GroupLockQueue::IsEmpty() {
    const SpinHold hold(lock_);
    return head_ == nullptr;
}

}  // namespace qx
