// Memory for the duration of one call.
#pragma once

#include <cstddef>
#include <cstdint>

#include "runtime/counters.h"

namespace qx {

// Bytes of arbitrary content. They come from a block that the thread keeps from call to call, so that a call allocates
// nothing once the thread has worked on a file of the size.
class WorkArea {
  public:
    // Raises 1014, counted in `shortage`, when there is no memory.
    explicit WorkArea(size_t size, Counter shortage = Counter::AllocateTemporaryDataErrors);
    ~WorkArea();
    WorkArea(const WorkArea&) = delete;
    WorkArea& operator=(const WorkArea&) = delete;

    uint8_t* Bytes() { return bytes_; }

  private:
    uint8_t* bytes_;
    bool kept_ = false;
};

}  // namespace qx
