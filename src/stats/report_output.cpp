#include "stats/report_output.h"

#include <algorithm>

#include "runtime/status.h"

namespace qx {

namespace {
constexpr uint8_t kDeepestMark = 250;
}

void ReportOutput::Append(std::string_view entry, uint8_t mark) {
    if (entry.empty()) {
        DropMarksBelow(mark);
    }
    MakeRoom(uint64_t{used_} + entry.size() + 1);
    uint8_t* end = std::copy(entry.begin(), entry.end(), room_.data() + used_);
    *end = mark;
    used_ += static_cast<uint32_t>(entry.size()) + 1;
}

AppendedOutput ReportOutput::HandOver() const {
    return {AppendTransfer(session_.Buffers.Callback(), buffer_, room_, used_)};
}

void ReportOutput::TakeBack(const AppendedOutput& appended) {
    const uintptr_t length = appended.Descriptor.Words[4];
    if (length > UINT32_MAX || appended.Appended > length - used_) {
        Raise(Code::RemoteStatisticsFailed);
    }
    room_ = {reinterpret_cast<uint8_t*>(appended.Descriptor.Words[5]), length};
    used_ += static_cast<uint32_t>(appended.Appended);
}

void ReportOutput::Finish() {
    session_.Buffers.Allocate(buffer_, used_);
}

void ReportOutput::DropMarksBelow(uint8_t mark) {
    while (used_ > 0 && room_[used_ - 1] >= kDeepestMark && room_[used_ - 1] < mark) {
        --used_;
    }
}

// What the callback hands over beyond what was asked for is used without asking again.
void ReportOutput::MakeRoom(uint64_t bytes) {
    if (bytes <= room_.size()) {
        return;
    }
    const uint64_t most = session_.MaximumRecordSize != 0 ? session_.MaximumRecordSize : UINT32_MAX;
    if (bytes > most) {
        Raise(Code::RecordTooLong);
    }
    room_ = session_.Buffers.Extend(buffer_, static_cast<uint32_t>(bytes));
}

}  // namespace qx
