// QXReadNextKeyIdGroup, QXReadPreviousKeyIdGroup, QXClearSelect, QXVerifyGroup.
#include <qx.h>

#include "api/entry.h"
#include "records/verify.h"
#include "records/walk.h"

namespace qx {

namespace {

int32_t ReadGroup(uint32_t file, uint32_t keyList, WalkDirection direction, Counter counter, StatusRecord* status) {
    return FileOperation(file, counter, status, [&](FileCall& call, StatusRecord& target) {
        const bool more = ReadKeyIdGroup(call, keyList, direction);
        if (!more) {
            target = MakeStatus(Code::EndOfWalk);
        }
        return more;
    });
}

}  // namespace

}  // namespace qx

extern "C" {

int32_t QXReadNextKeyIdGroup(uint32_t file, uint32_t keyList, StatusRecord* status) {
    using namespace qx;
    return ReadGroup(file, keyList, WalkDirection::Forward, Counter::ReadNextIdGroups, status);
}

int32_t QXReadPreviousKeyIdGroup(uint32_t file, uint32_t keyList, StatusRecord* status) {
    using namespace qx;
    return ReadGroup(file, keyList, WalkDirection::Backward, Counter::ReadPreviousIdGroups, status);
}

int32_t QXClearSelect(uint32_t file, StatusRecord* status) {
    using namespace qx;
    return FileOperation(file, Counter::ClearSelects, status, [](FileCall& call, StatusRecord&) {
        ClearSelect(call);
        return true;
    });
}

int32_t QXVerifyGroup(uint32_t file, uint32_t mode, uint32_t group, uint32_t statisticsReport, uint32_t problemReport,
                      StatusRecord* status) {
    using namespace qx;
    return ExportedCall(status, [&](StatusRecord&) {
        FileEntry entry(file);
        Verify(entry.Call, mode, group, statisticsReport, problemReport);
        return true;
    });
}

}  // extern "C"
