#include "volume/parameter_text.h"

#include <algorithm>

#include "locking/lock_offsets.h"
#include "platform/ascii_case.h"

namespace qx {

namespace {

constexpr size_t kLongestPipeName = 16;

std::optional<bool> AsBoolean(std::string_view value) {
    if (value == "1" || value == "YES" || value == "TRUE") {
        return true;
    }
    if (value == "0" || value == "NO" || value == "FALSE") {
        return false;
    }
    return std::nullopt;
}

// Numbers are of 32 bits and wrap.
std::optional<uint32_t> AsNumber(std::string_view value) {
    uint32_t base = 10;
    if (value.starts_with("0X")) {
        base = 16;
        value.remove_prefix(2);
    }
    if (value.empty()) {
        return std::nullopt;
    }
    uint32_t number = 0;
    for (const char c : value) {
        const bool isLetter = c >= 'A' && c <= 'F';
        const auto digit = static_cast<uint32_t>(isLetter ? c - 'A' + 10 : c - '0');
        if ((c < '0' || c > '9') && !(isLetter && base == 16)) {
            return std::nullopt;
        }
        number = number * base + digit;
    }
    return number;
}

template <class Field, class Value>
bool StoreIfValid(Field& field, const std::optional<Value>& value) {
    if (value) {
        field = *value;
    }
    return value.has_value();
}

// Each of these stores a value, or says that it is not valid.

template <auto field>
bool StoreBoolean(std::string_view value, Parameters& parameters) {
    return StoreIfValid(parameters.Settings.*field, AsBoolean(value));
}

template <uint32_t VolumeSettings::*field>
bool StoreNumber(std::string_view value, Parameters& parameters) {
    return StoreIfValid(parameters.Settings.*field, AsNumber(value));
}

bool StoreMaximumUsers(std::string_view value, Parameters& parameters) {
    const std::optional<uint32_t> number = AsNumber(value);
    if (!number || *number > LockMap::kMostUsers) {
        return false;
    }
    parameters.Settings.MaximumUsers = *number != 0 ? *number : LockMap::kDefaultUsers;
    return true;
}

bool StorePipeName(std::string_view value, Parameters& parameters) {
    if (value.empty()) {
        return false;
    }
    parameters.Server.NamedPipeName = value == "NONE" ? "" : value.substr(0, kLongestPipeName);
    return true;
}

bool StorePort(std::string_view value, Parameters& parameters) {
    return StoreIfValid(parameters.Server.TcpIpPort, PortIn(value));
}

template <std::string ServerEntries::*field>
bool StoreName(std::string_view value, Parameters& parameters) {
    parameters.Server.*field = value;
    return !value.empty();
}

struct Rule {
    std::string_view Word;
    bool (*Store)(std::string_view value, Parameters& parameters);
};

// In the order of Keyword.
constexpr Rule kRules[] = {
    {"SERVERONLY", StoreBoolean<&VolumeSettings::ServerOnly>},
    {"READONLY", StoreBoolean<&VolumeSettings::ReadOnly>},
    {"FLUSHFILESIZEUPDATES", StoreBoolean<&VolumeSettings::FlushFileSizeUpdates>},
    {"FLUSHALLUPDATES", StoreBoolean<&VolumeSettings::FlushAllUpdates>},
    {"FILLCHARACTER", StoreNumber<&VolumeSettings::FillCharacter>},
    {"LOCKS", StoreBoolean<&VolumeSettings::Locks>},
    {"CACHEFLUSHLOCKS", StoreBoolean<&VolumeSettings::CacheFlushLocks>},
    {"GROUPLOCKTIMEOUT", StoreNumber<&VolumeSettings::GroupLockTimeout>},
    {"MAXIMUMUSERS", StoreMaximumUsers},
    {"MAXIMUMRECORDSIZE", StoreNumber<&VolumeSettings::MaximumRecordSize>},
    {"NAMEDPIPENAME", StorePipeName},
    {"TCPIPPORT", StorePort},
    {"SERVERNAME", StoreName<&ServerEntries::ServerName>},
    {"SHARENAME", StoreName<&ServerEntries::ShareName>},
};
static_assert(std::size(kRules) == kKeywordCount);

// Of the server's entries the first one counts, of the others the last.
bool FirstCounts(Keyword keyword) {
    return keyword >= Keyword::NamedPipeName;
}

std::optional<Keyword> KeywordOf(std::string_view word) {
    const auto* rule =
        std::find_if(std::begin(kRules), std::end(kRules), [&](const Rule& r) { return r.Word == word; });
    return rule == std::end(kRules) ? std::nullopt : std::optional(static_cast<Keyword>(rule - std::begin(kRules)));
}

bool IsSeparator(char c) {
    return static_cast<unsigned char>(c) <= ' ';
}

bool IsNameCharacter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

class Parser {
  public:
    Parser(std::string_view text, Parameters& parameters) : text_(UpperCase(text)), parameters_(parameters) {}

    // A token that cannot be what its place asks for may be the beginning of the next assignment.
    ParameterReading Run() {
        Token token = NextName();
        bool isTold = false;  // as part of the assignment that it spoilt
        while (!token.Text.empty()) {
            const std::optional<Keyword> keyword = KeywordOf(token.Text);
            Token next;
            bool nextIsTold = false;
            if (token.Text == ".") {
                Tell(NextName(), UnusedWord::Reason::AfterDot);
                next = NextName();
            } else if (!keyword) {
                if (!isTold) {
                    Tell(token, UnusedWord::Reason::NoKeyword);
                }
                next = NextName();
            } else if (next = NextName(); next.Text != "=") {
                Tell(token, UnusedWord::Reason::NoAssignment);
            } else if (next = NextValue(); Assign(*keyword, token, next)) {
                next = NextName();
            } else {
                Tell({token.Offset, Between(token, next)}, UnusedWord::Reason::BadValue);
                nextIsTold = true;
            }
            token = next;
            isTold = nextIsTold;
        }
        return std::move(reading_);
    }

  private:
    struct Token {
        size_t Offset = 0;
        std::string_view Text;
    };

    template <class IsInside>
    Token Next(IsInside isInside) {
        while (position_ < text_.size() && IsSeparator(text_[position_])) {
            ++position_;
        }
        const size_t start = position_;
        while (position_ < text_.size() && isInside(text_[position_])) {
            ++position_;
        }
        return {start, std::string_view(text_).substr(start, position_ - start)};
    }

    // A name, or a sign that cannot be part of one; empty at the end.
    Token NextName() {
        Token token = Next(IsNameCharacter);
        if (token.Text.empty() && position_ < text_.size()) {
            token.Text = std::string_view(text_).substr(position_++, 1);
        }
        return token;
    }

    Token NextValue() {
        return Next([](char c) { return !IsSeparator(c); });
    }

    bool Assign(Keyword keyword, const Token& at, const Token& value) {
        std::optional<size_t>& setAt = reading_.SetAt[static_cast<size_t>(keyword)];
        const Rule& rule = kRules[static_cast<size_t>(keyword)];
        if (setAt && FirstCounts(keyword)) {
            Parameters ignored;
            const bool isValid = rule.Store(value.Text, ignored);
            if (isValid) {
                Tell({at.Offset, Between(at, value)}, UnusedWord::Reason::SetBefore);
            }
            return isValid;
        }
        const bool isValid = rule.Store(value.Text, parameters_);
        if (isValid) {
            setAt = at.Offset;
        }
        return isValid;
    }

    std::string_view Between(const Token& first, const Token& last) const {
        return std::string_view(text_).substr(first.Offset, last.Offset + last.Text.size() - first.Offset);
    }

    void Tell(const Token& token, UnusedWord::Reason why) {
        if (!token.Text.empty() && IsNameCharacter(token.Text.front())) {
            reading_.Unused.push_back({token.Offset, token.Text.size(), why});
        }
    }

    const std::string text_;
    size_t position_ = 0;
    Parameters& parameters_;
    ParameterReading reading_;
};

}  // namespace

std::string_view WordOf(Keyword keyword) {
    return kRules[static_cast<size_t>(keyword)].Word;
}

ParameterReading ApplyParameterText(std::string_view text, Parameters& parameters) {
    return Parser(text.substr(0, kParameterTextLimit), parameters).Run();
}

std::optional<uint32_t> PortIn(std::string_view text) {
    return text == "NONE" ? kNoPort : AsNumber(text);
}

std::string NameOnServer(std::string_view path, const ServerEntries& entries) {
    const size_t serverEnd = std::min(path.find('\\', 2), path.size());
    const size_t shareEnd = path.find('\\', serverEnd + 1);
    std::string name = "\\\\";
    name += entries.ServerName.empty() ? path.substr(2, serverEnd - 2) : std::string_view(entries.ServerName);
    if (entries.ShareName.empty() || shareEnd == std::string_view::npos) {
        name += path.substr(serverEnd);
    } else {
        name += '\\' + entries.ShareName;
        name += path.substr(shareEnd);
    }
    return name;
}

std::string_view EnclosingDirectory(std::string_view directory) {
    const size_t separator =
        directory.size() < 2 ? std::string_view::npos : directory.find_last_of("/\\", directory.size() - 2);
    return separator == std::string_view::npos ? std::string_view() : directory.substr(0, separator + 1);
}

}  // namespace qx
