#pragma once

#include <cstdint>
#include <map>
#include <qx.hpp>

namespace qx::tool {

/// Bytes of a group that are in use: its frame header, its records and the mark behind them.
std::uint64_t UsedBytes(const HeaderValues& header, const GroupMeasures& measures);

/// What the groups of a file amount to; damaged ones are only counted.
struct GroupTotals {
    void Add(const HeaderValues& header, std::uint32_t group, const GroupVerification& result);

    /// Frames that reading a record visits on average; 0 without records.
    double VisitsPerRead() const;

    std::uint64_t Groups = 0;
    std::uint64_t Damaged = 0;
    std::uint64_t Records = 0;
    std::uint64_t RecordBytes = 0;  // as stored
    std::uint64_t OverflowFrames = 0;
    std::uint64_t Load = 0;  // bytes in use, of each group up to one frame
    std::uint64_t OutOfOrder = 0;
    std::map<std::uint64_t, std::uint64_t> Chains;  // groups by their number of frames

  private:
    std::uint64_t visits_ = 0;
};

}  // namespace qx::tool
