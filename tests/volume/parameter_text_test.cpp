#include "volume/parameter_text.h"

#include <gtest/gtest.h>
#include <random>
#include <strings.h>

#include "support/test_seed.h"

namespace qx_test {
namespace {

using Reason = qx::UnusedWord::Reason;

// What a text changes, in the order of the keywords, and which words it has in vain.
struct Outcome {
    std::string Set;
    std::string Unused;

    friend bool operator==(const Outcome&, const Outcome&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
        return out << '{' << outcome.Set << "} unused: " << outcome.Unused;
    }
};

std::string Values(const qx::Parameters& parameters) {
    const qx::VolumeSettings& s = parameters.Settings;
    const qx::ServerEntries& server = parameters.Server;
    std::string text;
    const auto add = [&](qx::Keyword keyword, const auto& value, const auto& usual) {
        if (value == usual) {
            return;
        }
        text += (text.empty() ? "" : " ") + std::string(qx::WordOf(keyword)) + '=';
        if constexpr (std::is_same_v<decltype(value), const std::string&>) {
            text += value;
        } else {
            text += std::to_string(value);
        }
    };
    add(qx::Keyword::ServerOnly, s.ServerOnly, false);
    add(qx::Keyword::ReadOnly, s.ReadOnly, false);
    add(qx::Keyword::FlushFileSizeUpdates, s.FlushFileSizeUpdates, false);
    add(qx::Keyword::FlushAllUpdates, s.FlushAllUpdates, false);
    add(qx::Keyword::FillCharacter, s.FillCharacter, 0U);
    add(qx::Keyword::Locks, s.Locks ? static_cast<int>(*s.Locks) : -1, -1);
    add(qx::Keyword::CacheFlushLocks, s.CacheFlushLocks, true);
    add(qx::Keyword::GroupLockTimeout, s.GroupLockTimeout, 60U);
    add(qx::Keyword::MaximumUsers, s.MaximumUsers, 1024U);
    add(qx::Keyword::MaximumRecordSize, s.MaximumRecordSize, 0U);
    add(qx::Keyword::NamedPipeName, server.NamedPipeName, std::string("QXSRVC"));
    add(qx::Keyword::TcpIpPort, server.TcpIpPort, 0U);
    add(qx::Keyword::ServerName, server.ServerName, std::string());
    add(qx::Keyword::ShareName, server.ShareName, std::string());
    return text;
}

Outcome Read(const std::string& text) {
    qx::Parameters parameters;
    const qx::ParameterReading reading = qx::ApplyParameterText(text, parameters);
    Outcome outcome{Values(parameters), ""};
    for (const qx::UnusedWord& word : reading.Unused) {
        outcome.Unused += (outcome.Unused.empty() ? "" : "|") + text.substr(word.Offset, word.Length) +
                          "?=!.2"[static_cast<size_t>(word.Why)];
    }
    for (size_t i = 0; i < qx::kKeywordCount; ++i) {
        const std::string_view word = qx::WordOf(static_cast<qx::Keyword>(i));
        if (reading.SetAt[i]) {
            EXPECT_EQ(strcasecmp(text.substr(*reading.SetAt[i], word.size()).c_str(), std::string(word).c_str()), 0);
        } else {
            EXPECT_EQ((' ' + outcome.Set).find(' ' + std::string(word) + '='), std::string::npos) << word;
        }
    }
    return outcome;
}

// Unused words end with ? no keyword, = no assignment, ! bad value, . after a dot, 2 set before.
TEST(ParameterText, WhatATextSets) {
    static_assert(static_cast<size_t>(Reason::NoKeyword) == 0 && static_cast<size_t>(Reason::SetBefore) == 4);
    const std::string nul(1, '\0');
    const std::string late(6144 - 12, ' ');
    const struct {
        std::string Text;
        Outcome Expected;
    } cases[] = {
        // Every keyword.
        {"", {"", ""}},
        {"SERVERONLY=YES", {"SERVERONLY=1", ""}},
        {"READONLY=TRUE", {"READONLY=1", ""}},
        {"FLUSHFILESIZEUPDATES=1", {"FLUSHFILESIZEUPDATES=1", ""}},
        {"flushAllUpdates = yes", {"FLUSHALLUPDATES=1", ""}},
        {"FILLCHARACTER=32", {"FILLCHARACTER=32", ""}},
        {"LOCKS=NO", {"LOCKS=0", ""}},
        {"LOCKS=true", {"LOCKS=1", ""}},
        {"CACHEFLUSHLOCKS=FALSE", {"CACHEFLUSHLOCKS=0", ""}},
        {"GROUPLOCKTIMEOUT=0", {"GROUPLOCKTIMEOUT=0", ""}},
        {"MAXIMUMUSERS=0x10", {"MAXIMUMUSERS=16", ""}},
        {"MAXIMUMUSERS=0", {"", ""}},
        {"MAXIMUMRECORDSIZE=0XfF", {"MAXIMUMRECORDSIZE=255", ""}},
        {"NAMEDPIPENAME=pipe", {"NAMEDPIPENAME=PIPE", ""}},
        {"NAMEDPIPENAME=a234567890123456789", {"NAMEDPIPENAME=A234567890123456", ""}},
        {"NAMEDPIPENAME=none", {"NAMEDPIPENAME=", ""}},
        {"TCPIPPORT=777", {"TCPIPPORT=777", ""}},
        {"TCPIPPORT=None", {"TCPIPPORT=4294967295", ""}},
        {"SERVERNAME=al-pha.x", {"SERVERNAME=AL-PHA.X", ""}},
        {"SHARENAME=c:", {"SHARENAME=C:", ""}},
        // Of several, the last one; of the server's entries, the first one.
        {"READONLY=1 READONLY=0 FILLCHARACTER=1\nFILLCHARACTER=2", {"FILLCHARACTER=2", ""}},
        {"TCPIPPORT=x TCPIPPORT=1 TCPIPPORT=2 TCPIPPORT=y",
         {"TCPIPPORT=1",
          "TCPIPPORT=x!|TCPIPPORT=2"
          "2|TCPIPPORT=y!"}},
        // Separators.
        {"\t\r\nREADONLY" + nul + "\x01=\x1F\x20YES\x7F", {"", "READONLY" + nul + "\x01=\x1F\x20YES\x7F!"}},
        {"\t\r\nREADONLY" + nul + "\x01=\x1F\x20YES" + nul + "LOCKS=1", {"READONLY=1 LOCKS=1", ""}},
        {"/* READONLY=YES */LOCKS=1", {"READONLY=1 LOCKS=1", ""}},
        {"(READONLY=YES)", {"", "READONLY=YES)!"}},
        {"\xEF\xBB\xBFREADONLY=YES", {"READONLY=1", ""}},
        // Words that are none.
        {"READ_ONLY=YES XREADONLY=1 READONLYX=1", {"", "READ_ONLY?|YES?|XREADONLY?|1?|READONLYX?|1?"}},
        {"GROUPLOCKTIMEOUT 30 READONLY=1", {"READONLY=1", "GROUPLOCKTIMEOUT=|30?"}},
        {"FILLCHARACTER LOCKS=1", {"LOCKS=1", "FILLCHARACTER="}},
        {"FILLCHARACTER == 3", {"", "FILLCHARACTER ==!|3?"}},
        {"FILLCHARACTER = LOCKS = 1", {"LOCKS=1", "FILLCHARACTER = LOCKS!"}},
        {"FILLCHARACTER=LOCKS=1 READONLY=1", {"READONLY=1", "FILLCHARACTER=LOCKS=1!"}},
        {"READONLY=. LOCKS =1", {"", "READONLY=.!|LOCKS.|1?"}},
        {"READONLY=", {"", "READONLY=!"}},
        {"NAMEDPIPENAME=", {"", "NAMEDPIPENAME=!"}},
        {"SHARENAME", {"", "SHARENAME="}},
        // A dot.
        {". READONLY=1", {"", "READONLY.|1?"}},
        {".READONLY=1 LOCKS=0", {"LOCKS=0", "READONLY.|1?"}},
        {"..READONLY=1", {"READONLY=1", ""}},
        {".", {"", ""}},
        // Values.
        {"READONLY=2", {"", "READONLY=2!"}},
        {"READONLY=YES,", {"", "READONLY=YES,!"}},
        {"FILLCHARACTER=0x", {"", "FILLCHARACTER=0x!"}},
        {"FILLCHARACTER=0xG", {"", "FILLCHARACTER=0xG!"}},
        {"FILLCHARACTER=1F", {"", "FILLCHARACTER=1F!"}},
        {"FILLCHARACTER=-1", {"", "FILLCHARACTER=-1!"}},
        {"FILLCHARACTER=NONE", {"", "FILLCHARACTER=NONE!"}},
        {"FILLCHARACTER=4294967297 GROUPLOCKTIMEOUT=0x100000002", {"FILLCHARACTER=1 GROUPLOCKTIMEOUT=2", ""}},
        {"MAXIMUMUSERS=0x7FFFFFF", {"MAXIMUMUSERS=134217727", ""}},
        {"MAXIMUMUSERS=0x8000000", {"", "MAXIMUMUSERS=0x8000000!"}},
        // Only so much of a file counts.
        {late + "READONLY=YES", {"READONLY=1", ""}},
        {late + " READONLY=YES", {"", "READONLY=YE!"}},
        {late + "LOCKS=FALSE LOCKS=TRUE", {"LOCKS=0", ""}},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(Read(text), expected) << text.substr(text.find_last_of(" ") + 1);
    }
}

TEST(ParameterText, NamesOnAServer) {
    const struct {
        const char* Path;
        const char* Server;
        const char* Share;
        const char* Expected;
    } cases[] = {
        {"\\\\HOST\\data\\in\\CUST", "", "", "\\\\HOST\\data\\in\\CUST"},
        {"\\\\HOST\\data\\in\\CUST", "ALPHA", "", "\\\\ALPHA\\data\\in\\CUST"},
        {"\\\\HOST\\data\\in\\CUST", "", "EXPORT", "\\\\HOST\\EXPORT\\in\\CUST"},
        {"\\\\HOST\\data\\CUST", "ALPHA", "EXPORT", "\\\\ALPHA\\EXPORT\\CUST"},
        {"\\\\HOST\\CUST", "ALPHA", "EXPORT", "\\\\ALPHA\\CUST"},
        {"\\\\HOST\\", "ALPHA", "EXPORT", "\\\\ALPHA\\"},
    };
    for (const auto& [path, server, share, expected] : cases) {
        EXPECT_EQ(qx::NameOnServer(path, {.ServerName = server, .ShareName = share}), expected);
    }
}

TEST(ParameterText, AnyBytesAreRead) {
    std::mt19937_64 random(TestSeed());
    const std::vector<std::string> pieces = {
        "READONLY", "LOCKS", "NAMEDPIPENAME",      "tcpipport", "=", "=", "=", ".", "YES", "12", "NONE",
        " ",        "\n",    std::string(1, '\0'), "\xFF",      "x"};
    for (int i = 0; i < 20'000; ++i) {
        std::string text;
        for (uint64_t count = random() % 30; count > 0; --count) {
            text += random() % 8 == 0 ? std::string(1, static_cast<char>(random())) : pieces[random() % pieces.size()];
        }
        qx::Parameters parameters;
        size_t end = 0;
        for (const qx::UnusedWord& word : qx::ApplyParameterText(text, parameters).Unused) {
            ASSERT_GT(word.Length, 0U) << text;
            ASSERT_LE(end, word.Offset + word.Length) << text;
            end = word.Offset + word.Length;
            ASSERT_LE(end, text.size()) << text;
        }
    }
}

}  // namespace
}  // namespace qx_test
