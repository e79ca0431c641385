// QXReadRecord, QXReadOnlyRecord, QXWriteRecord, QXDeleteRecord.
#include <qx.h>

#include "api/entry.h"
#include "records/read.h"
#include "records/write.h"

namespace qx {

namespace {

template <Opcode opcode>
int32_t Read(uint32_t file, uint32_t key, uint32_t record, Counter counter, StatusRecord* status) {
    return FileOperation(
        file, counter, status,
        [&](const RemoteFileCall& remote) { remote.Ask<opcode>(remote.Receive(record), remote.Send(key)); },
        [&](FileCall& call, StatusRecord& target) { return FoundOrStatus(ReadRecord(call, key, record), target); });
}

}  // namespace

}  // namespace qx

extern "C" {

int32_t QXReadRecord(uint32_t file, uint32_t key, uint32_t record, StatusRecord* status) {
    return qx::Read<qx::Opcode::ReadRecord>(file, key, record, qx::Counter::ReadRecords, status);
}

int32_t QXReadOnlyRecord(uint32_t file, uint32_t key, uint32_t record, StatusRecord* status) {
    return qx::Read<qx::Opcode::ReadOnlyRecord>(file, key, record, qx::Counter::ReadOnlyRecords, status);
}

int32_t QXWriteRecord(uint32_t file, uint32_t key, uint32_t record, StatusRecord* status) {
    using namespace qx;
    return FileOperation(
        file, Counter::WriteRecords, status,
        [&](const RemoteFileCall& remote) { remote.Ask<Opcode::WriteRecord>(remote.Send(key), remote.Send(record)); },
        [&](FileCall& call, StatusRecord&) {
            WriteRecord(call, key, record);
            return true;
        });
}

int32_t QXDeleteRecord(uint32_t file, uint32_t key, StatusRecord* status) {
    using namespace qx;
    return FileOperation(
        file, Counter::DeleteRecords, status,
        [&](const RemoteFileCall& remote) { remote.Ask<Opcode::DeleteRecord>(remote.Send(key)); },
        [&](FileCall& call, StatusRecord& target) { return FoundOrStatus(DeleteRecord(call, key), target); });
}

}  // extern "C"
