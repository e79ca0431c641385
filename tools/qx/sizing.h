#pragma once

#include <cstdint>

namespace qx::tool {

/// What a file is to hold; both numbers above 0.
struct SizingNeed {
    std::uint64_t Records = 0;
    double StoredBytes = 0;         // of a record on average: its key and data, and what the file adds to them
    std::uint32_t Threshold = 204;  // in 256ths of a frame, as in CreateSettings
    std::uint32_t Version = 120;
};

struct Sizing {
    std::uint32_t FrameSize = 0;
    std::uint32_t Modulo = 0;
    double Visits = 0;  // expected frames that reading a record visits, on average
};

/// The frame size and number of groups with which a file is read quickly, loaded without many splits, and not much
/// larger than its records. docs/sizing.md tells why.
Sizing Advise(const SizingNeed& need);

/// The frames that reading a record of such a file is expected to visit on average, with frames of this size and as
/// many groups as keep the load at the threshold.
double ExpectedVisits(const SizingNeed& need, std::uint32_t frameSize);

/// The bytes that a file spends on a record with so many bytes of key and data.
double StoredBytesOf(std::uint64_t recordBytes);

/// From this on reads visit enough frames more than they have to that another size is worth the trouble.
constexpr double kManyVisits = 1.5;

}  // namespace qx::tool
