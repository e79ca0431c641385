// Status records as values: comparable and printable.
#pragma once

#include <array>
#include <cstdint>
#include <qx.h>
#include <utility>

#include "runtime/status.h"

namespace qx_test {

using Status = std::array<uint32_t, 3>;

inline Status Words(const StatusRecord& status) {
    return {status.Code, status.Detail1, status.Detail2};
}

inline constexpr Status kNothing{};

// The status of the failure that `body` raises; kNothing when it raises none.
template <class Body>
Status Raised(Body&& body) {
    StatusRecord status{};
    qx::RunCatching(status, [&] {
        std::forward<Body>(body)();
        return true;
    });
    return Words(status);
}

}  // namespace qx_test
