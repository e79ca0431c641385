// Handles: small numbers that stand for sessions and open files.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

#include "runtime/record_heap.h"
#include "runtime/state_gate.h"

namespace qx {

inline constexpr uint32_t kNoHandle = 0xFFFFFFFF;

// A table of reusable records, whose payloads are all of one type. A handle is a slot's index; a closed handle's number
// comes back only after every other free number, and the record's memory stays with its slot. Allocating, freeing and
// growing are done under the API mutex; look-ups by any thread at any time, without a lock: slots lie in chunks of
// doubling size, which stay where they are until the table goes.
class HandleTable {
  public:
    // Makes a record whose payload is a new T and whose gate is being opened; the owner calls EndOpen once the payload
    // is filled. Raises 1015, 1101, 1102.
    template <class T>
    T* Allocate(uint32_t* handle) {
        T* payload = new (AllocatePayload(sizeof(T), handle)) T();
        return payload;
    }

    void EndOpen(uint32_t handle) { GateOf(handle).EndOpen(); }

    // Raises 1102 while calls are inside, 1100 when the handle is not open.
    void BeginClose(uint32_t handle) { GateOf(handle).BeginClose(); }

    // Ends the record of a handle that is being closed and puts its number at the end of the free ones.
    template <class T>
    void Free(uint32_t handle) {
        PayloadOf<T>(handle)->~T();
        FreeSlot(handle);
    }

    // The payload of an open handle, which cannot be closed until the payload is left. Raises 1100; detail 2 is 1 for a
    // number beyond the table.
    template <class T>
    T* Enter(uint32_t handle) {
        return static_cast<T*>(EnterPayload(handle));
    }

    // By the call that has entered; the record stays where it is.
    static void Leave(void* payload) { (static_cast<Record*>(payload) - 1)->Gate.Leave(); }

    // The payload of a handle that is known to be open or being opened or closed, for its owner.
    template <class T>
    T* PayloadOf(uint32_t handle) {
        return static_cast<T*>(static_cast<void*>(RecordOf(handle) + 1));
    }

    // Frees every record and the table itself.
    void Destroy();

    uint32_t SlotCount() const { return slotCount_.load(std::memory_order_relaxed); }

  private:
    // The payload follows.
    struct alignas(std::max_align_t) Record {
        StateGate Gate;
    };

    struct Slot {
        uint32_t NextFree;
        std::atomic<Record*> Handle;  // null until the slot is first used
    };

    // More handles than 31 chunks can hold do not fit into memory.
    static constexpr size_t kChunks = 31;

    void* AllocatePayload(uint32_t size, uint32_t* handle);
    void* EnterPayload(uint32_t handle);
    void FreeSlot(uint32_t handle);
    void AddSlot();
    Slot& SlotOf(uint32_t handle);
    Record* RecordOf(uint32_t handle) { return SlotOf(handle).Handle.load(std::memory_order_relaxed); }
    StateGate& GateOf(uint32_t handle) { return RecordOf(handle)->Gate; }

    uint32_t freeHead_ = kNoHandle;
    uint32_t freeTail_ = kNoHandle;
    std::atomic<uint32_t> slotCount_ = 0;
    std::array<Slot*, kChunks> chunks_{};
};

}  // namespace qx
