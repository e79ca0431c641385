// QXGetStatistics.
#include <optional>
#include <qx.h>

#include "api/entry.h"
#include "remote/remote_session.h"
#include "stats/reports.h"
#include "storage/name_resolution.h"

namespace qx {

namespace {

enum ReportKind : uint32_t {
    kProcess = 1,
    kVolume = 2,
    kFile = 3,
    kSession = 4,
    kFileHandle = 5,
    kServers = 6,
};

// The records that a path leads to, as far as the process has any.
struct Subject {
    VolumeRecord* Volume = nullptr;
    OpenFile* File = nullptr;
};

std::optional<CanonicalPath> PathIn(const SessionRecord& session, uint32_t buffer) {
    const std::string_view name = session.Buffers.Get(buffer);
    return name.empty() ? std::nullopt : std::optional(PathOfName(name, PathEnd::FileOrVolume));
}

Subject Find(const CanonicalPath& path) {
    Subject subject;
    if (const auto volume = Volumes().find(path.Volume()); volume != Volumes().end()) {
        subject.Volume = volume->second;
        if (const auto file = subject.Volume->Files.find(path.FileName()); file != subject.Volume->Files.end()) {
            subject.File = file->second;
        }
    }
    return subject;
}

template <class Record>
Record& Required(Record* record) {
    if (record == nullptr) {
        Raise(Code::RecordNotFound);
    }
    return *record;
}

void WriteReport(ReportWriter& report, uint32_t kind, const Subject& subject, uint32_t subjectHandle) {
    switch (kind) {
        case kProcess:
            WriteProcessReport(report);
            break;
        case kVolume:
            WriteVolumeReport(report, Required(subject.Volume));
            break;
        case kFile:
            WriteFileReport(report, Required(subject.File));
            break;
        case kSession: {
            const SessionEntry entry(subjectHandle);
            WriteSessionReport(report, *entry.Session);
            break;
        }
        case kFileHandle: {
            const FileEntry entry(subjectHandle);
            WriteHandleReport(report, entry.Handle);
            break;
        }
        case kServers:
            WriteServersReport(report);
            break;
        default:
            Raise(Code::RecordNotFound);
    }
    report.Finish();
}

void Forward(const ServedName& served, const SessionRecord& session, uint32_t kind, uint32_t subjectHandle,
             uint32_t names, uint32_t values) {
    const GetStatisticsRequest request{served.Session.ServerSession, Saturated<uint16_t>(kind),
                                       Saturated<uint16_t>(subjectHandle)};
    const BufferCallback callback = session.Buffers.Callback();
    CallServer(served.Session.Connection, request, SendTransfer(callback, names), SendTransfer(callback, values),
               PlainTransfer(served.Name));
}

}  // namespace

}  // namespace qx

extern "C" {

int32_t QXGetStatistics(uint32_t session, uint32_t kind, uint32_t path, uint32_t subjectHandle, uint32_t,
                        uint32_t names, uint32_t values, StatusRecord* status) {
    using namespace qx;
    return ExportedCall(status, [&](StatusRecord&) {
        SessionEntry entry(session);
        entry.Count(Counter::GetStatistics);
        const std::optional<CanonicalPath> canonical = PathIn(*entry.Session, path);
        const ClaimHold api(theLibrary.ApiMutex);
        const std::optional<ServedName> served =
            canonical ? FindServer(*entry.Session, *canonical) : std::optional<ServedName>();
        if (served && kind != kServers) {
            Forward(*served, *entry.Session, kind, subjectHandle, names, values);
            return true;
        }
        ReportWriter report(*entry.Session, names, values);
        WriteReport(report, kind, canonical ? Find(*canonical) : Subject{}, subjectHandle);
        return true;
    });
}

}  // extern "C"
