// The requests that go to a server and the results that come back. Each message lists its fields in the order in which
// they travel, at the widths at which they travel; the codec does the rest.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <tuple>

#include "remote/opcode.h"

namespace qx {

// A value in fewer bytes: one that does not fit becomes the largest that does, so that it is not taken for another.
template <class Narrow>
constexpr Narrow Saturated(uint32_t value) {
    constexpr uint32_t kLargest = std::numeric_limits<Narrow>::max();
    return static_cast<Narrow>(std::min(value, kLargest));
}

struct NoResults {
    template <class Self>
    static auto Fields(Self&) {
        return std::tuple<>();
    }
};

// A session or file handle of the server, or a group.
struct NumberResults {
    uint32_t Number = 0;

    template <class Self>
    static auto Fields(Self& self) {
        return std::tie(self.Number);
    }
};

inline constexpr uint8_t kProtocolMajor = 3;
inline constexpr uint8_t kOldestProtocolMajor = 3;

struct GreetResults {
    uint8_t Major = 0;
    uint8_t Minor = 0;
    uint8_t Revision = 0;
    std::array<uint8_t, 16> Unused{};

    static constexpr size_t kShortest = 3;  // bytes that must be there; all, where a message does not say

    template <class Self>
    static auto Fields(Self& self) {
        return std::tie(self.Major, self.Minor, self.Revision, self.Unused);
    }
};

struct GreetRequest {
    static constexpr Opcode kOpcode = Opcode::Greet;
    using Results = GreetResults;

    uint8_t Major = kProtocolMajor;
    uint8_t Minor = 0;
    uint8_t Revision = 0;

    template <class Self>
    static auto Fields(Self& self) {
        return std::tie(self.Major, self.Minor, self.Revision);
    }
};

struct OpenSessionRequest {
    static constexpr Opcode kOpcode = Opcode::OpenSession;
    using Results = NumberResults;

    uint32_t MaximumRecordSize = 0;
    uint16_t MaximumIdentifierSessions = 0;
    uint16_t IdentifierLength = 0;
    std::array<uint8_t, 16> Identifier{};

    template <class Self>
    static auto Fields(Self& self) {
        return std::tie(self.MaximumRecordSize, self.MaximumIdentifierSessions, self.IdentifierLength, self.Identifier);
    }
};

struct GetStatisticsRequest {
    static constexpr Opcode kOpcode = Opcode::GetStatistics;
    using Results = NoResults;

    uint32_t Session = 0;
    uint16_t Kind = 0;
    uint16_t Subject = 0;

    template <class Self>
    static auto Fields(Self& self) {
        return std::tie(self.Session, self.Kind, self.Subject);
    }
};

struct CreateFileRequest {
    static constexpr Opcode kOpcode = Opcode::CreateFile;
    using Results = NoResults;

    uint32_t Session = 0;
    uint32_t Modulo = 0;
    uint16_t FrameSize = 0;
    uint8_t Threshold = 0;
    uint16_t SizeLock = 0;
    uint16_t Version = 0;

    template <class Self>
    static auto Fields(Self& self) {
        return std::tie(self.Session, self.Modulo, self.FrameSize, self.Threshold, self.SizeLock, self.Version);
    }
};

struct OpenFileRequest {
    static constexpr Opcode kOpcode = Opcode::OpenFile;
    using Results = NumberResults;

    uint32_t Session = 0;
    uint8_t ReuseHandle = 0;
    uint8_t ReadOnly = 0;
    uint16_t SelectDelimiter = 0;
    uint32_t SelectMinimumSize = 0;
    uint8_t TrimLastDelimiter = 0;
    uint8_t PositionObjectInUse = 0;

    template <class Self>
    static auto Fields(Self& self) {
        return std::tie(self.Session, self.ReuseHandle, self.ReadOnly, self.SelectDelimiter, self.SelectMinimumSize,
                        self.TrimLastDelimiter, self.PositionObjectInUse);
    }
};

struct GetFileHeaderResults {
    uint16_t Version = 0;
    uint16_t FrameSize = 0;
    uint8_t Threshold = 0;
    uint16_t SizeLock = 0;
    uint32_t Modulo = 0;
    uint32_t RecordCount = 0;
    uint32_t Alpha = 0;
    uint16_t ModuloVerified = 0;

    template <class Self>
    static auto Fields(Self& self) {
        return std::tie(self.Version, self.FrameSize, self.Threshold, self.SizeLock, self.Modulo, self.RecordCount,
                        self.Alpha, self.ModuloVerified);
    }
};

struct LockGroupRequest {
    static constexpr Opcode kOpcode = Opcode::LockGroup;
    using Results = NoResults;

    uint32_t File = 0;
    uint32_t Group = 0;
    uint8_t Exclusive = 0;

    template <class Self>
    static auto Fields(Self& self) {
        return std::tie(self.File, self.Group, self.Exclusive);
    }
};

struct UnlockGroupRequest {
    static constexpr Opcode kOpcode = Opcode::UnlockGroup;
    using Results = NoResults;

    uint32_t File = 0;
    uint32_t Group = 0;

    template <class Self>
    static auto Fields(Self& self) {
        return std::tie(self.File, self.Group);
    }
};

struct VerifyGroupRequest {
    static constexpr Opcode kOpcode = Opcode::VerifyGroup;
    using Results = NoResults;

    uint32_t File = 0;
    uint8_t Mode = 0;
    uint32_t Group = 0;

    template <class Self>
    static auto Fields(Self& self) {
        return std::tie(self.File, self.Mode, self.Group);
    }
};

// The requests that say nothing but which session they are for.
template <Opcode opcode>
struct SessionRequest {
    static_assert(opcode == Opcode::CloseSession || opcode == Opcode::UnlockAll || opcode == Opcode::Flush ||
                  opcode == Opcode::DeleteFile);
    static constexpr Opcode kOpcode = opcode;
    using Results = NoResults;

    uint32_t Session = 0;

    template <class Self>
    static auto Fields(Self& self) {
        return std::tie(self.Session);
    }
};

template <Opcode opcode>
struct FileResults {
    using Type = NoResults;
};
template <>
struct FileResults<Opcode::GetFileHeader> {
    using Type = GetFileHeaderResults;
};
template <>
struct FileResults<Opcode::GetGroupNumber> {
    using Type = NumberResults;
};

// Those that say nothing but which file they are for.
template <Opcode opcode>
struct FileRequest {
    static_assert(opcode >= Opcode::CloseFile && opcode <= Opcode::GetGroupNumber);
    static constexpr Opcode kOpcode = opcode;
    using Results = typename FileResults<opcode>::Type;

    uint32_t File = 0;

    template <class Self>
    static auto Fields(Self& self) {
        return std::tie(self.File);
    }
};

}  // namespace qx
