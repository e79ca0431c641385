// QXReadNextKeyIdGroup, QXReadPreviousKeyIdGroup, QXClearSelect, QXVerifyGroup.
#include <qx.h>

#include "api/entry.h"
#include "records/verify.h"
#include "records/walk.h"

namespace qx {

namespace {

template <Opcode opcode>
int32_t ReadGroup(uint32_t file, uint32_t keyList, WalkDirection direction, Counter counter, StatusRecord* status) {
    return FileOperation(
        file, counter, status,
        [&](const RemoteFileCall& remote) { remote.AskWithPosition<opcode>(remote.Receive(keyList)); },
        [&](FileCall& call, StatusRecord& target) {
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
    return ReadGroup<Opcode::ReadNextKeyIdGroup>(file, keyList, WalkDirection::Forward, Counter::ReadNextIdGroups,
                                                 status);
}

int32_t QXReadPreviousKeyIdGroup(uint32_t file, uint32_t keyList, StatusRecord* status) {
    using namespace qx;
    return ReadGroup<Opcode::ReadPreviousKeyIdGroup>(file, keyList, WalkDirection::Backward,
                                                     Counter::ReadPreviousIdGroups, status);
}

int32_t QXClearSelect(uint32_t file, StatusRecord* status) {
    using namespace qx;
    return FileOperation(
        file, Counter::ClearSelects, status,
        [](const RemoteFileCall& remote) { remote.AskWithPosition<Opcode::ClearSelect>(); },
        [](FileCall& call, StatusRecord&) {
            ClearSelect(call);
            return true;
        });
}

int32_t QXVerifyGroup(uint32_t file, uint32_t mode, uint32_t group, uint32_t statisticsReport, uint32_t problemReport,
                      StatusRecord* status) {
    using namespace qx;
    return ExportedCall(status, [&](StatusRecord&) {
        FileEntry entry(file);
        if (entry.Handle.IsRemote()) {
            const RemoteFileCall remote(*entry.Handle.Remote, entry.Session.Buffers);
            remote.Ask(VerifyGroupRequest{remote.File(), Saturated<uint8_t>(mode), group},
                       remote.Receive(statisticsReport), remote.Receive(problemReport));
            return true;
        }
        FileCall call(entry.Session, file, entry.Handle);
        Verify(call, mode, group, statisticsReport, problemReport);
        return true;
    });
}

}  // extern "C"
