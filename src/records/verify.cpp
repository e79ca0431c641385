#include "records/verify.h"

#include <algorithm>

#include "storage/select_hold.h"

namespace qx {

namespace {

void HandOver(FileCall& call, uint32_t buffer, const VerificationReport& report) {
    FirstFailure failure;
    const bool good = failure.Run([&] {
        const std::string_view bytes = report.Bytes();
        uint8_t* to = call.Session->Buffers.Allocate(buffer, static_cast<uint32_t>(bytes.size())).data();
        std::copy(bytes.begin(), bytes.end(), to);
    });
    if (!good) {
        call.Levels.CountForSession(Counter::VerifyGroupAllocationErrors);
    }
    failure.RaiseIfAny();
}

}  // namespace

void Verify(FileCall& call, uint32_t mode, uint32_t group, uint32_t statisticsBuffer, uint32_t problemBuffer) {
    Verification result;
    if (mode == kVerifyFile) {
        CheckFile(call, result);
    } else if (mode == kVerifyGroup) {
        CheckGroup(call, group, result);
    } else {
        ReleaseSelectHold(call);
    }
    FirstFailure failure;
    failure.Run([&] {
        HandOver(call, statisticsBuffer, result.Statistics);
        HandOver(call, problemBuffer, result.Problem);
    });
    if (!failure.Good() && result.Held) {
        ReleaseSelectHold(call);  // whoever is told of a failure does not come back to give it up
    }
    failure.RaiseIfAny();
}

}  // namespace qx
