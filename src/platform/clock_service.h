// Time for waits.
#pragma once

#include <cstdint>

namespace qx {

class ClockService {
  public:
    virtual ~ClockService() = default;

    // Milliseconds since some moment in the past; never goes back and ignores changes of the time of day.
    virtual uint64_t MonotonicMilliseconds() = 0;
};

}  // namespace qx
