#include <map>

#include "remote/remote_session.h"
#include "stats/counter_runs.h"
#include "stats/handle_numbers.h"
#include "stats/reports.h"
#include "storage/session_locks.h"

namespace qx {

namespace {

void WriteServers(ReportWriter& report, SessionRecord& session) {
    report.List("Servers", [&] {
        for (const RemoteSession* remote = session.RemoteSessions; remote != nullptr; remote = remote->NextOfSession) {
            report.Bytes(remote->Connection.Name);
        }
    });
}

// A lock goes before the handle that it was taken through.
using FilesOfLocks = std::map<const LockTable*, const OpenFile*>;

FilesOfLocks FilesOf(const SessionRecord& session) {
    FilesOfLocks files;
    for (uint32_t number = session.Files.Head(); number != kNoHandle;
         number = HandleList::Next<&FileHandle::SessionLinks>(theLibrary.Files, number)) {
        const auto* handle = theLibrary.Files.PayloadOf<FileHandle>(number);
        if (!handle->IsRemote()) {
            files.emplace(&handle->File->Locks, handle->File);
        }
    }
    return files;
}

void WriteLocks(ReportWriter& report, SessionRecord& session) {
    const FilesOfLocks files = FilesOf(session);
    const ClaimHold hold(session.LockMutex);
    LockTableClaim ofFile;
    const auto writeFile = [&](LockTable& table) {
        ofFile.MoveTo(table);
        const OpenFile& file = *files.at(&table);
        report.Bytes(file.Volume.Name);
        report.Bytes(file.Name);
    };
    report.Table("File Locks", {"Volume Name", "File Name", "Exclusive"}, [&] {
        for (const FileLock* lock = session.Locks.Files; lock != nullptr; lock = lock->OfSession.Next) {
            report.Nested([&] {
                writeFile(*lock->Table);
                report.Boolean(lock->Exclusive);
            });
        }
    });
    report.Table("Record Locks", {"Volume Name", "File Name", "Key Id", "Exclusive"}, [&] {
        for (const RecordLock* lock = session.Locks.Records; lock != nullptr; lock = lock->OfSession.Next) {
            report.Nested([&] {
                writeFile(*lock->Table);
                report.Bytes(lock->Key());
                report.Boolean(lock->Exclusive);
            });
        }
    });
}

}  // namespace

void WriteSessionReport(ReportWriter& report, SessionRecord& session) {
    report.Number("Maximum Record Size", session.MaximumRecordSize);
    WriteServers(report, session);
    WriteHandleNumbers<&FileHandle::SessionLinks>(report, "Session Files", session.Files);
    WriteLocks(report, session);
    const CounterValues counts = session.Counters.Values();
    WriteCounts(report, counts, {kSessionCalls, kNameCalls, kHandleCalls, kLiveSessionFiles});
    WriteErrors(report, counts, {kRefusals});
}

}  // namespace qx
