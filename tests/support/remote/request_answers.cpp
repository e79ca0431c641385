#include "support/remote/request_answers.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <qx.h>
#include <set>

#include "remote/message_codec.h"
#include "remote/messages.h"
#include "support/remote/local_functions.h"

namespace qx_test {

namespace {

using qx::Opcode;

// Buffer objects: one for each descriptor of the request at hand, and the position of the walk that it is for.
constexpr uint32_t kPosition = 3;
thread_local std::string theObjects[kPosition + 1];

// File handles whose walk has its position with the client.
class Positions {
  public:
    void Set(uint32_t file, bool inUse) {
        const std::lock_guard lock(mutex_);
        if (inUse) {
            files_.insert(file);
        } else {
            files_.erase(file);
        }
    }

    bool InUse(uint32_t file) {
        const std::lock_guard lock(mutex_);
        return files_.contains(file);
    }

  private:
    std::mutex mutex_;
    std::set<uint32_t> files_;
};
Positions thePositions;

int32_t Objects(uint32_t operation, uint32_t buffer, uint32_t length, uint32_t* outLength, void** outAddress,
                StatusRecord*) {
    std::string& bytes = theObjects[buffer];
    if (operation == 2 || (operation == 1 && bytes.size() < length)) {
        bytes.resize(length);
    }
    *outLength = static_cast<uint32_t>(bytes.size());
    *outAddress = bytes.data();
    return 1;
}

// Names come as SHARE\dir\file; the share is a directory of the root here.
void MakeName(uint32_t object) {
    theObjects[object].insert(0, 1, '/');
}

// One request on its way to a reply.
class Exchange {
  public:
    explicit Exchange(const Parcel& request) : request_(request) {
        for (uint32_t i = 1; i < request.size(); ++i) {
            theObjects[i - 1] = request[i].value_or("");
        }
    }

    Opcode Operation() const { return static_cast<Opcode>(request_[0]->at(0)); }

    // Answers with what `work(request, results, status)` says; objects `filled` go back with a success.
    template <class Request, class Work>
    Parcel Serve(std::initializer_list<uint32_t> filled, Work&& work) {
        const std::string& bytes = *request_[0];
        const std::optional<Request> request =
            qx::DecodeRequest<Request>({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
        Parcel reply(request_.size());
        typename Request::Results results{};
        StatusRecord status{1100, 0, 0};
        if (request && work(*request, results, &status) != 0) {
            reply[0] = Text(qx::EncodeResults(results));
            for (const uint32_t object : filled) {
                reply[1 + object] = theObjects[object];
            }
        } else {
            reply[0] = Text(qx::EncodeRefusal(status));
        }
        return reply;
    }

    // The same for requests on a file that have no other fields.
    template <Opcode opcode, class Work>
    Parcel ServeFile(std::initializer_list<uint32_t> filled, Work&& work) {
        return Serve<qx::FileRequest<opcode>>(
            filled, [&](const auto& request, const auto&, StatusRecord* status) { return work(request.File, status); });
    }

    // And for steps of the walk: object 0 is the position, which goes both ways whatever becomes of the walk.
    template <Opcode opcode, class Work>
    Parcel ServeWalk(std::initializer_list<uint32_t> filled, Work&& work) {
        theObjects[kPosition] = theObjects[0];
        bool positioned = false;
        Parcel reply = ServeFile<opcode>(filled, [&](uint32_t file, StatusRecord* status) {
            positioned = thePositions.InUse(file);
            return work(file, status);
        });
        if (positioned) {
            reply[1] = theObjects[kPosition];
        }
        return reply;
    }

    template <Opcode opcode, class Work>
    Parcel ServeSession(Work&& work) {
        return Serve<qx::SessionRequest<opcode>>(
            {}, [&](const auto& request, const auto&, StatusRecord* status) { return work(request.Session, status); });
    }

  private:
    template <class Bytes>
    static std::string Text(const Bytes& bytes) {
        return {bytes.begin(), bytes.end()};
    }

    const Parcel& request_;
};

int32_t OpenSession(const qx::OpenSessionRequest& request, qx::NumberResults& results, StatusRecord* status) {
    SessionOptions options{};
    options.Size = sizeof options;
    options.MaximumRecordSize = request.MaximumRecordSize;
    options.MaximumIdentifierSessions = request.MaximumIdentifierSessions;
    options.IdentifierLength = request.IdentifierLength;
    std::copy(request.Identifier.begin(), request.Identifier.end(), options.Identifier);
    return local::OpenSession(Objects, &options, &results.Number, status);
}

int32_t CreateFile(const qx::CreateFileRequest& request, StatusRecord* status) {
    MakeName(0);
    const CreateOptions options{sizeof options,    request.Modulo,   request.FrameSize,
                                request.Threshold, request.SizeLock, request.Version};
    return local::CreateFile(request.Session, 0, &options, status);
}

int32_t OpenFile(const qx::OpenFileRequest& request, qx::NumberResults& results, StatusRecord* status) {
    MakeName(1);
    const OpenOptions options{sizeof options,
                              request.ReuseHandle,
                              request.ReadOnly,
                              request.SelectDelimiter,
                              request.SelectMinimumSize,
                              request.TrimLastDelimiter,
                              request.PositionObjectInUse,
                              kPosition};
    const int32_t result = local::OpenFile(request.Session, 1, &options, &results.Number, status);
    if (result != 0 && request.ReuseHandle == 0) {
        thePositions.Set(results.Number, request.PositionObjectInUse != 0);
    }
    return result;
}

int32_t CloseFile(uint32_t file, StatusRecord* status) {
    thePositions.Set(file, false);
    return local::CloseFile(file, status);
}

int32_t GetFileHeader(uint32_t file, qx::GetFileHeaderResults& results, StatusRecord* status) {
    FileHeaderRecord header{};
    header.Size = sizeof header;
    const int32_t result = local::GetFileHeader(file, &header, status);
    results = {static_cast<uint16_t>(header.Version),
               static_cast<uint16_t>(header.FrameSize),
               static_cast<uint8_t>(header.Threshold),
               static_cast<uint16_t>(header.SizeLock),
               header.Modulo,
               header.RecordCount,
               header.Alpha,
               static_cast<uint16_t>(header.ModuloVerified)};
    return result;
}

}  // namespace

Parcel AnswerRequest(const Parcel& request) {
    Exchange exchange(request);
    const auto onKey = [](auto function) {
        return [function](uint32_t file, StatusRecord* status) { return function(file, 0, status); };
    };
    const auto onKeyAndRecord = [](auto function, uint32_t key, uint32_t record) {
        return [=](uint32_t file, StatusRecord* status) { return function(file, key, record, status); };
    };
    switch (exchange.Operation()) {
        case Opcode::Greet:
            return exchange.Serve<qx::GreetRequest>({}, [](const auto&, qx::GreetResults& results, StatusRecord*) {
                results.Major = qx::kProtocolMajor;
                return 1;
            });
        case Opcode::OpenSession:
            return exchange.Serve<qx::OpenSessionRequest>({}, OpenSession);
        case Opcode::CloseSession:
            return exchange.ServeSession<Opcode::CloseSession>(local::CloseSession);
        case Opcode::GetStatistics:
            MakeName(2);
            return exchange.Serve<qx::GetStatisticsRequest>(
                {0, 1}, [](const auto& asked, const auto&, StatusRecord* status) {
                    return local::GetStatistics(asked.Session, asked.Kind, 2, asked.Subject, 0, 0, 1, status);
                });
        case Opcode::UnlockAll:
            return exchange.ServeSession<Opcode::UnlockAll>(local::UnlockAll);
        case Opcode::Flush:
            return exchange.ServeSession<Opcode::Flush>(local::Flush);
        case Opcode::CreateFile:
            return exchange.Serve<qx::CreateFileRequest>(
                {}, [](const auto& asked, const auto&, StatusRecord* status) { return CreateFile(asked, status); });
        case Opcode::DeleteFile:
            MakeName(0);
            return exchange.ServeSession<Opcode::DeleteFile>(
                [](uint32_t session, StatusRecord* status) { return local::DeleteFile(session, 0, status); });
        case Opcode::OpenFile:
            return exchange.Serve<qx::OpenFileRequest>({}, OpenFile);
        case Opcode::CloseFile:
            return exchange.ServeFile<Opcode::CloseFile>({}, CloseFile);
        case Opcode::GetFileHeader:
            return exchange.Serve<qx::FileRequest<Opcode::GetFileHeader>>(
                {}, [](const auto& asked, auto& results, StatusRecord* status) {
                    return GetFileHeader(asked.File, results, status);
                });
        case Opcode::ReadRecord:
            return exchange.ServeFile<Opcode::ReadRecord>({0}, onKeyAndRecord(local::ReadRecord, 1, 0));
        case Opcode::ReadOnlyRecord:
            return exchange.ServeFile<Opcode::ReadOnlyRecord>({0}, onKeyAndRecord(local::ReadOnlyRecord, 1, 0));
        case Opcode::WriteRecord:
            return exchange.ServeFile<Opcode::WriteRecord>({}, onKeyAndRecord(local::WriteRecord, 0, 1));
        case Opcode::DeleteRecord:
            return exchange.ServeFile<Opcode::DeleteRecord>({}, onKey(local::DeleteRecord));
        case Opcode::ClearFile:
            return exchange.ServeFile<Opcode::ClearFile>({}, local::ClearFile);
        case Opcode::ExclusiveLockFile:
            return exchange.ServeFile<Opcode::ExclusiveLockFile>({}, local::ExclusiveLockFile);
        case Opcode::SharedLockFile:
            return exchange.ServeFile<Opcode::SharedLockFile>({}, local::SharedLockFile);
        case Opcode::UnlockFile:
            return exchange.ServeFile<Opcode::UnlockFile>({}, local::UnlockFile);
        case Opcode::ExclusiveLockRecord:
            return exchange.ServeFile<Opcode::ExclusiveLockRecord>({}, onKey(local::ExclusiveLockRecord));
        case Opcode::SharedLockRecord:
            return exchange.ServeFile<Opcode::SharedLockRecord>({}, onKey(local::SharedLockRecord));
        case Opcode::UnlockRecord:
            return exchange.ServeFile<Opcode::UnlockRecord>({}, onKey(local::UnlockRecord));
        case Opcode::ReadNextKeyIdGroup:
            return exchange.ServeWalk<Opcode::ReadNextKeyIdGroup>(
                {1}, [](uint32_t file, StatusRecord* status) { return local::ReadNextKeyIdGroup(file, 1, status); });
        case Opcode::ReadPreviousKeyIdGroup:
            return exchange.ServeWalk<Opcode::ReadPreviousKeyIdGroup>({1}, [](uint32_t file, StatusRecord* status) {
                return local::ReadPreviousKeyIdGroup(file, 1, status);
            });
        case Opcode::ClearSelect:
            return exchange.ServeFile<Opcode::ClearSelect>({}, local::ClearSelect);
        case Opcode::GetGroupNumber:
            return exchange.Serve<qx::FileRequest<Opcode::GetGroupNumber>>(
                {}, [](const auto& asked, auto& results, StatusRecord* status) {
                    return local::GetGroupNumber(asked.File, 0, &results.Number, status);
                });
        case Opcode::LockGroup:
            return exchange.Serve<qx::LockGroupRequest>({}, [](const auto& asked, const auto&, StatusRecord* status) {
                return local::LockGroup(asked.File, asked.Group, asked.Exclusive, status);
            });
        case Opcode::UnlockGroup:
            return exchange.Serve<qx::UnlockGroupRequest>({}, [](const auto& asked, const auto&, StatusRecord* status) {
                return local::UnlockGroup(asked.File, asked.Group, status);
            });
        case Opcode::VerifyGroup:
            return exchange.Serve<qx::VerifyGroupRequest>(
                {0, 1}, [](const auto& asked, const auto&, StatusRecord* status) {
                    return local::VerifyGroup(asked.File, asked.Mode, asked.Group, 0, 1, status);
                });
    }
    return Parcel(request.size());
}

}  // namespace qx_test
