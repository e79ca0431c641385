// The text of a volume's parameter file: assignments such as READONLY = YES, and what they set. Nothing in such a text
// is an error; what makes no assignment has no effect.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qx {

inline constexpr std::string_view kParameterFile = "MOXPARAM";
inline constexpr size_t kParameterTextLimit = 6144;  // bytes of the file that count

struct VolumeSettings {
    bool ServerOnly = false;            // only its server may use the volume
    bool ReadOnly = false;              // nothing on the volume may be changed
    bool FlushFileSizeUpdates = false;  // flush a file whenever its size changes
    bool FlushAllUpdates = false;       // flush a file after every update
    bool CacheFlushLocks = true;        // every open primary and overflow file carries the process's marker
    std::optional<bool> Locks;          // byte locks demanded or renounced; nothing: used where they work
    uint32_t FillCharacter = 0;         // what the free space of frames is filled with; the low byte counts
    uint32_t GroupLockTimeout = 60;     // seconds that a group or select lock waits for other processes; 0: one attempt
    uint32_t MaximumUsers = 1024;       // processes that can use the volume at once
    uint32_t MaximumRecordSize = 0;     // bytes; 0: no limit
};

// How to reach the server that serves the volume.
struct ServerEntries {
    std::string NamedPipeName = "QXSRVC";  // empty: none
    uint32_t TcpIpPort = 0;                // kNoPort: none
    std::string ServerName;                // instead of that in the path, unless empty
    std::string ShareName;                 // instead of that in the path, unless empty
};

inline constexpr uint32_t kNoPort = 0xFFFFFFFF;

// A port as it is written, in upper case: a number, or NONE. Nothing for anything else.
std::optional<uint32_t> PortIn(std::string_view text);

struct Parameters {
    VolumeSettings Settings;
    ServerEntries Server;
};

enum class Keyword : uint8_t {
    ServerOnly,
    ReadOnly,
    FlushFileSizeUpdates,
    FlushAllUpdates,
    FillCharacter,
    Locks,
    CacheFlushLocks,
    GroupLockTimeout,
    MaximumUsers,
    MaximumRecordSize,
    NamedPipeName,
    TcpIpPort,
    ServerName,
    ShareName,
};
inline constexpr size_t kKeywordCount = static_cast<size_t>(Keyword::ShareName) + 1;

// The keyword as it is written in the file.
std::string_view WordOf(Keyword keyword);

// A piece of the text that had no effect.
struct UnusedWord {
    enum class Reason : uint8_t {
        NoKeyword,
        NoAssignment,  // a keyword without an equals sign
        BadValue,      // a keyword, an equals sign and what cannot be its value
        AfterDot,      // passed over because of the dot before it
        SetBefore,     // an entry of the server of which only the first counts
    };

    size_t Offset;
    size_t Length;
    Reason Why;
};

// What a text set, and where.
struct ParameterReading {
    std::array<std::optional<size_t>, kKeywordCount> SetAt{};  // offset of the keyword whose value is in force
    std::vector<UnusedWord> Unused;                            // in their order; single signs are not listed
};

// Sets what the text assigns and leaves the rest as it is. The text is taken up to its limit.
ParameterReading ApplyParameterText(std::string_view text, Parameters& parameters);

// The name by which the volume's server knows a canonical path: with the server's own name, and the share's name in the
// place of the first directory. A path without directories has no share.
std::string NameOnServer(std::string_view path, const ServerEntries& entries);

// The directory that holds `directory`; both end with a separator, / or \. Empty when there is none.
std::string_view EnclosingDirectory(std::string_view directory);

}  // namespace qx
