#include "group_totals.h"

#include <algorithm>

#include "storage/layout/file_header.h"
#include "storage/layout/frame_header.h"

namespace qx::tool {

namespace {

std::uint64_t HeaderLength(const HeaderValues& header, std::uint32_t group) {
    if (group > 0) {
        return kPrimaryHeaderLength;
    }
    return header.Version >= kVersion120   ? kHeaderLength120
           : header.Version >= kVersion110 ? kHeaderLength110
                                           : kHeaderLength100;
}

}  // namespace

std::uint64_t UsedBytes(const HeaderValues& header, const GroupMeasures& measures) {
    const std::uint64_t room = header.FrameSize + measures.OverflowFrames * (header.FrameSize - kOverflowHeaderLength);
    return room - measures.FreeBytes + 1;
}

void GroupTotals::Add(const HeaderValues& header, std::uint32_t group, const GroupVerification& result) {
    ++Groups;
    if (result.Damage) {
        ++Damaged;
        return;
    }
    const GroupMeasures& measures = result.Measures;
    const std::uint64_t used = UsedBytes(header, measures);
    Records += measures.Records;
    RecordBytes += used - HeaderLength(header, group) - 1;
    OverflowFrames += measures.OverflowFrames;
    Load += std::min<std::uint64_t>(used, header.FrameSize);
    OutOfOrder += measures.OutOfOrder;
    visits_ += measures.FrameVisits - 1;
    ++Chains[measures.OverflowFrames + 1];
}

double GroupTotals::VisitsPerRead() const {
    return Records == 0 ? 0 : static_cast<double>(visits_) / static_cast<double>(Records);
}

}  // namespace qx::tool
