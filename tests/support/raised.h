// Status records as values: comparable and printable.
#pragma once

#include <array>
#include <cstdint>
#include <gtest/gtest.h>
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

// The status that an exported function leaves; kNothing when it succeeds, which has to leave the record alone.
template <class Function>
Status Called(Function&& function) {
    constexpr StatusRecord kUntouched{0xA5A5A5A5, 0x5A5A5A5A, 0xA55A5AA5};
    StatusRecord status = kUntouched;
    const int32_t result = std::forward<Function>(function)(&status);
    if (result == 0) {
        return Words(status);
    }
    EXPECT_EQ(result, 1);
    EXPECT_EQ(Words(status), Words(kUntouched));
    return kNothing;
}

}  // namespace qx_test
