// Guards the life of an object that calls work inside of: it cannot be closed under them.
#pragma once

#include <cstdint>

#include "runtime/spin_lock.h"

namespace qx {

class StateGate {
  public:
    // The opener makes the object between BeginOpen and EndOpen. BeginOpen raises 1102 while the object is being opened
    // or closed, 1101 when it is open.
    void BeginOpen();
    void EndOpen();
    void AbortOpen();

    // The closer takes the object apart between BeginClose and EndClose. BeginClose raises 1102 while calls are inside
    // or the object is being opened or closed, 1100 when it is not open.
    void BeginClose();
    void EndClose();

    // A call goes in and comes out; Enter is false (reported as 1100) when the object is not open.
    bool Enter();
    void Leave();

  private:
    SpinLock lock_;
    bool busy_ = false;
    bool ready_ = false;
    uint32_t users_ = 0;
};

}  // namespace qx
