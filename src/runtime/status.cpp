#include "runtime/status.h"

namespace qx {

void Raise(const StatusRecord& status) {
    throw Failure(status);
}

}  // namespace qx
