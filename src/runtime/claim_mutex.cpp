#include "runtime/claim_mutex.h"

#include <optional>

#include "platform/platform.h"
#include "runtime/counters.h"
#include "runtime/status.h"

namespace qx {

bool ClaimMutex::Claim(Node& node) {
    node.Next = nullptr;
    lock_.Acquire();
    Count(claims_);
    if (head_ == nullptr) {
        head_ = &node;
        tail_ = &node;
        lock_.Release();
        return true;
    }
    const std::optional<EventIndex> event = theWaitEvents.Take();
    if (!event) {
        lock_.Release();
        theProcessCounters.Increment(Counter::ClaimMutexInitSuspendErrors);
        return false;
    }
    node.Event = *event;
    tail_->Next = &node;
    tail_ = &node;
    Count(suspends_);
    lock_.Release();
    theWaitEvents.Wait(*event);
    // The releasing thread may still be inside its critical section, and the mutex may be gone once this owner is done.
    lock_.Acquire();
    lock_.Release();
    return true;
}

bool ClaimMutex::TryClaim(Node& node) {
    node.Next = nullptr;
    const SpinHold hold(lock_);
    if (head_ != nullptr) {
        return false;
    }
    head_ = &node;
    tail_ = &node;
    Count(claims_);
    return true;
}

void ClaimMutex::Release(Node& node) {
    const SpinHold hold(lock_);
    Count(releases_);
    head_ = node.Next;
    if (head_ != nullptr) {
        Count(resumes_);
        theWaitEvents.Signal(head_->Event);
    } else {
        tail_ = nullptr;
    }
}

ClaimHold::ClaimHold(ClaimMutex& mutex) : mutex_(&mutex) {
    if (!mutex.Claim(node_)) {
        mutex_ = nullptr;
        Raise(Code::CannotSuspend);
    }
}

void ClaimHold::Release() {
    if (mutex_ != nullptr) {
        mutex_->Release(node_);
        mutex_ = nullptr;
    }
}

PatientClaimHold::PatientClaimHold(ClaimMutex& mutex) : mutex_(mutex) {
    while (!mutex.Claim(node_)) {
        thePlatform.Threads->Sleep(1);
    }
}

OptionalClaimHold::OptionalClaimHold(ClaimMutex& mutex, bool wait)
    : mutex_((wait ? mutex.Claim(node_) : mutex.TryClaim(node_)) ? &mutex : nullptr) {}

OptionalClaimHold::~OptionalClaimHold() {
    if (mutex_ != nullptr) {
        mutex_->Release(node_);
    }
}

}  // namespace qx
