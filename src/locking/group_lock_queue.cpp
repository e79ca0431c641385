#include "locking/group_lock_queue.h"

#include <optional>

namespace qx {

bool GroupLockQueue::Lock(GroupLockRequest& request, uint32_t group, bool exclusive, const CounterLevels& levels) {
    levels.CountWork(Counter::GroupLocks);
    request.Group = group;
    request.Exclusive = exclusive;
    request.Granted = false;
    lock_.Acquire();
    bool conflict = false;
    GroupLockRequest** end = &head_;
    for (; *end != nullptr; end = &(*end)->Next) {
        conflict = conflict || ((*end)->Group == group && (exclusive || (*end)->Exclusive));
    }
    if (conflict) {
        const std::optional<EventIndex> event = theWaitEvents.Take();
        if (!event) {
            lock_.Release();
            levels.CountWork(Counter::GroupLockInitSuspendErrors);
            return false;
        }
        request.Event = *event;
    }
    request.Next = nullptr;
    request.Granted = !conflict;
    *end = &request;
    lock_.Release();
    if (conflict) {
        levels.CountWork(Counter::GroupLockSuspends);
        theWaitEvents.Wait(request.Event);
    }
    return true;
}

void GroupLockQueue::Unlock(GroupLockRequest& request, const CounterLevels& levels) {
    levels.CountWork(Counter::GroupUnlocks);
    const SpinHold hold(lock_);
    bool earlier = false;
    GroupLockRequest** link = &head_;
    for (; *link != &request; link = &(*link)->Next) {
        earlier = earlier || (*link)->Group == request.Group;
    }
    *link = request.Next;
    request.Granted = false;
    if (!earlier) {
        WakeSuccessors(request, levels);
    }
}

// Only requests that have become the first of their group are woken: after an exclusive lock the next exclusive request
// or the run of shared ones before it, after a shared lock the next exclusive one.
void GroupLockQueue::WakeSuccessors(const GroupLockRequest& removed, const CounterLevels& levels) {
    bool woken = false;
    for (GroupLockRequest* next = removed.Next; next != nullptr; next = next->Next) {
        if (next->Group != removed.Group) {
            continue;
        }
        if (next->Exclusive ? woken : !removed.Exclusive) {
            return;
        }
        levels.CountWork(Counter::GroupUnlockResumes);
        next->Granted = true;
        woken = true;
        theWaitEvents.Signal(next->Event);
        if (next->Exclusive) {
            return;
        }
    }
}

bool GroupLockQueue::IsEmpty() {
    const SpinHold hold(lock_);
    return head_ == nullptr;
}

}  // namespace qx
