// A first-come, first-served mutex: the owner's release hands it directly to the claimant that has waited longest.
#pragma once

#include <atomic>
#include <cstdint>

#include "runtime/spin_lock.h"
#include "runtime/wait_event_pool.h"

namespace qx {

class ClaimMutex {
  public:
    // A claimant's place in the queue, kept by the claimant until it has released the mutex.
    struct Node {
        Node* Next = nullptr;
        EventIndex Event = 0;
    };

    // Waits without time limit until the node owns the mutex. False, and the mutex as it was, when the claim would have
    // to wait and no wait event can be had; counted in "Claim Mutex Init Suspend Errors", reported as 1028.
    bool Claim(Node& node);
    // Never waits; false when the mutex is owned.
    bool TryClaim(Node& node);
    // By the owner, with the node that it claimed with.
    void Release(Node& node);

    uint32_t Claims() const { return claims_.load(std::memory_order_relaxed); }
    uint32_t Releases() const { return releases_.load(std::memory_order_relaxed); }
    uint32_t Suspends() const { return suspends_.load(std::memory_order_relaxed); }
    uint32_t Resumes() const { return resumes_.load(std::memory_order_relaxed); }

  private:
    // Under the lock, so that counting takes no locked instruction.
    static void Count(std::atomic<uint32_t>& counter) {
        counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }

    SpinLock lock_;
    Node* head_ = nullptr;  // the owner
    Node* tail_ = nullptr;
    std::atomic<uint32_t> claims_{0};
    std::atomic<uint32_t> releases_{0};
    std::atomic<uint32_t> suspends_{0};
    std::atomic<uint32_t> resumes_{0};
};

// Owns a mutex for as long as the object lives.
class ClaimHold {
  public:
    // Raises 1028 when the mutex cannot be claimed.
    explicit ClaimHold(ClaimMutex& mutex);
    ~ClaimHold() { Release(); }
    ClaimHold(const ClaimHold&) = delete;
    ClaimHold& operator=(const ClaimHold&) = delete;

    // Gives the mutex up early.
    void Release();

  private:
    ClaimMutex* mutex_;
    ClaimMutex::Node node_;
};

// The same for a mutex in a record that is about to go away: without a wait event it tries again until it owns it.
class PatientClaimHold {
  public:
    explicit PatientClaimHold(ClaimMutex& mutex);
    ~PatientClaimHold() { mutex_.Release(node_); }
    PatientClaimHold(const PatientClaimHold&) = delete;
    PatientClaimHold& operator=(const PatientClaimHold&) = delete;

  private:
    ClaimMutex& mutex_;
    ClaimMutex::Node node_;
};

// Owns a mutex if that was possible: without waiting (Try), or without an event to wait on being a failure (Claim).
class OptionalClaimHold {
  public:
    static OptionalClaimHold Claim(ClaimMutex& mutex) { return OptionalClaimHold(mutex, true); }
    static OptionalClaimHold Try(ClaimMutex& mutex) { return OptionalClaimHold(mutex, false); }
    ~OptionalClaimHold();
    OptionalClaimHold(const OptionalClaimHold&) = delete;
    OptionalClaimHold& operator=(const OptionalClaimHold&) = delete;

    explicit operator bool() const { return mutex_ != nullptr; }

  private:
    OptionalClaimHold(ClaimMutex& mutex, bool wait);

    ClaimMutex::Node node_;  // before mutex_, whose initialiser claims with it and lets others queue behind it
    ClaimMutex* mutex_;
};

}  // namespace qx
