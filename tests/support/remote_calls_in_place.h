// Puts an object of the test in the place of the remote-call library.
#pragma once

#include "support/tbx4/tbx4.h"

namespace qx_test {

// For as long as this lives, which is around the time in which the library is started.
class RemoteCallsInPlace {
  public:
    explicit RemoteCallsInPlace(RemoteCalls& calls);
    ~RemoteCallsInPlace();
    RemoteCallsInPlace(const RemoteCallsInPlace&) = delete;
    RemoteCallsInPlace& operator=(const RemoteCallsInPlace&) = delete;

  private:
    void* module_;
    SetRemoteCallsFunction set_;
};

}  // namespace qx_test
