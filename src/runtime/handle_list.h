// Lists of handles, linked through their payloads.
#pragma once

#include <cstdint>

#include "runtime/handle_table.h"

namespace qx {

struct HandleLinks {
    uint32_t Previous = kNoHandle;
    uint32_t Next = kNoHandle;
};

// One list of handles of one table. `links` is the member of the payload through which the list runs; a payload has one
// for each list that it can be on. Changed only under the API mutex.
class HandleList {
  public:
    uint32_t Head() const { return head_; }
    bool IsEmpty() const { return head_ == kNoHandle; }

    template <auto links>
    static uint32_t Next(HandleTable& table, uint32_t handle) {
        return Links<links>(table, handle).Next;
    }

    template <auto links>
    void Append(HandleTable& table, uint32_t handle) {
        Links<links>(table, handle) = {tail_, kNoHandle};
        (tail_ == kNoHandle ? head_ : Links<links>(table, tail_).Next) = handle;
        tail_ = handle;
    }

    template <auto links>
    void Remove(HandleTable& table, uint32_t handle) {
        const HandleLinks old = Links<links>(table, handle);
        (old.Previous == kNoHandle ? head_ : Links<links>(table, old.Previous).Next) = old.Next;
        (old.Next == kNoHandle ? tail_ : Links<links>(table, old.Next).Previous) = old.Previous;
    }

  private:
    template <class Payload>
    static Payload PayloadType(HandleLinks Payload::*);

    template <auto links>
    static HandleLinks& Links(HandleTable& table, uint32_t handle) {
        return table.PayloadOf<decltype(PayloadType(links))>(handle)->*links;
    }

    uint32_t head_ = kNoHandle;
    uint32_t tail_ = kNoHandle;
};

}  // namespace qx
