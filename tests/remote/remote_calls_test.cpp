// The exported functions on names and files of a server that a script plays: what they send, what they make of the
// answers, and in which order things end.
#include <algorithm>

#include "remote/remote_connection.h"
#include "runtime/library_record.h"
#include "support/file_test.h"
#include "support/scripted_server.h"

namespace qx_test {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kServed = "\\\\SRV\\SHARE\\F";

// The library is started over the script.
struct Script {
    ScriptedServer Server;
};

class RemoteCalls : protected Script, public FileTest {
  protected:
    ~RemoteCalls() override { AcceptCallbacks(); }

    // Full words, where FileTest's short forms would put a local directory in front of the name.
    uint32_t OpenServed(const OpenOptions& options = {}, const char* name = kServed) {
        Buffer(kName) = name;
        uint32_t file = kNone;
        Run([&](StatusRecord* status) { return QXOpenFile(Session, kName, &options, &file, status); });
        return file;
    }

    bool CreateServed(const CreateOptions& options, const char* name = kServed) {
        Buffer(kName) = name;
        return Run([&](StatusRecord* status) { return QXCreateFile(Session, kName, &options, status); });
    }

    bool CloseSession() {
        return Run([&](StatusRecord* status) { return QXCloseSession(Session, status); });
    }

    Lines Log() { return Server.TakeLog(); }
};

TEST_F(RemoteCalls, EachIsItsRequest) {
    EXPECT_TRUE(CloseSession());
    SessionOptions session{sizeof session, 0x01020304, 0, 0, 0x10005, 3, {'a', 'b', 'c', 'd'}};
    ASSERT_TRUE(Run([&](StatusRecord* status) { return QXOpenSession(TestCallback, &session, &Session, status); }));
    const OpenOptions walk{sizeof walk, 1, 1, 0x41, 0x11121314, 7, 0x100, 5};
    uint32_t file = kNone;
    uint32_t group = kNone;
    Buffer(kName) = kServed;
    struct Case {
        std::function<int32_t(StatusRecord*)> Call;
        Lines Sent;
    };
    const CreateOptions created{sizeof created, 7, 0x1234, 200, 2, 110};
    const Case cases[] = {
        {[&](StatusRecord* status) { return QXCreateFile(Session, kName, &created, status); },
         {"connect SRV 'QXSRVC' 0", "00 030000", "01 04030201FFFF030061626300000000000000000000000000",
          "06 04030201070000003412C802006E00 plain SHARE\\F"}},
        {[&](StatusRecord* status) { return QXCreateFile(Session, kName, nullptr, status); },
         {"06 04030201010000000004CC00007800 plain SHARE\\F"}},
        {[&](StatusRecord* status) { return QXDeleteFile(Session, kName, status); }, {"07 04030201 plain SHARE\\F"}},
        {[&](StatusRecord* status) { return QXOpenFile(Session, kName, &walk, &file, status); },
         {"08 04030201010141001413121107FF receive 5 plain SHARE\\F"}},
        {[&](StatusRecord* status) { return QXReadNextKeyIdGroup(file, kData, status); },
         {"16 05000000 send 5 receive 2"}},
        {[&](StatusRecord* status) { return QXReadPreviousKeyIdGroup(file, kData, status); },
         {"17 05000000 send 5 receive 2"}},
        {[&](StatusRecord* status) { return QXClearSelect(file, status); }, {"18 05000000 send 5"}},
        {[&](StatusRecord* status) { return QXCloseFile(file, status); }, {"09 05000000"}},
        {[&](StatusRecord* status) { return QXOpenFile(Session, kName, nullptr, &file, status); },
         {"08 0403020100000000000000000000 plain  plain SHARE\\F"}},
        {[&](StatusRecord* status) { return QXGetFileHeader(file, nullptr, status); }, {"0A 05000000"}},
        {[&](StatusRecord* status) { return QXReadRecord(file, kKey, kData, status); },
         {"0B 05000000 receive 2 send 1"}},
        {[&](StatusRecord* status) { return QXReadOnlyRecord(file, kKey, kData, status); },
         {"0C 05000000 receive 2 send 1"}},
        {[&](StatusRecord* status) { return QXWriteRecord(file, kKey, kData, status); }, {"0D 05000000 send 1 send 2"}},
        {[&](StatusRecord* status) { return QXDeleteRecord(file, kKey, status); }, {"0E 05000000 send 1"}},
        {[&](StatusRecord* status) { return QXClearFile(file, status); }, {"0F 05000000"}},
        {[&](StatusRecord* status) { return QXExclusiveLockFile(file, status); }, {"10 05000000"}},
        {[&](StatusRecord* status) { return QXSharedLockFile(file, status); }, {"11 05000000"}},
        {[&](StatusRecord* status) { return QXUnlockFile(file, status); }, {"12 05000000"}},
        {[&](StatusRecord* status) { return QXExclusiveLockRecord(file, kKey, status); }, {"13 05000000 send 1"}},
        {[&](StatusRecord* status) { return QXSharedLockRecord(file, kKey, status); }, {"14 05000000 send 1"}},
        {[&](StatusRecord* status) { return QXUnlockRecord(file, kKey, status); }, {"15 05000000 send 1"}},
        {[&](StatusRecord* status) { return QXReadNextKeyIdGroup(file, kData, status); },
         {"16 05000000 plain  receive 2"}},
        {[&](StatusRecord* status) { return QXClearSelect(file, status); }, {"18 05000000 plain "}},
        {[&](StatusRecord* status) { return QXGetGroupNumber(file, kKey, &group, status); }, {"19 05000000 send 1"}},
        {[&](StatusRecord* status) { return QXLockGroup(file, 0x01020304, 0x101, status); }, {"1A 0500000004030201FF"}},
        {[&](StatusRecord* status) { return QXUnlockGroup(file, 0xFFFFFFFE, status); }, {"1B 05000000FEFFFFFF"}},
        {[&](StatusRecord* status) { return QXVerifyGroup(file, 256, 3, kKey, kData, status); },
         {"1C 05000000FF03000000 receive 1 receive 2"}},
        {[&](StatusRecord* status) { return QXFlush(Session, status); }, {"05 04030201"}},
        {[&](StatusRecord* status) { return QXUnlockAll(Session, status); }, {"04 04030201"}},
        {[&](StatusRecord* status) { return QXGetStatistics(Session, 2, kName, 0x10002, 9, kKey, kData, status); },
         {"03 040302010200FFFF send 1 send 2 plain SHARE\\F"}},
        {[&](StatusRecord* status) { return QXCloseSession(Session, status); }, {"09 05000000", "02 04030201"}},
    };
    Log();
    for (const Case& c : cases) {
        EXPECT_EQ(Called(c.Call), kNothing) << c.Sent.back();
        EXPECT_EQ(Log(), c.Sent);
    }
}

TEST_F(RemoteCalls, ResultsReachTheCaller) {
    Server.Answers[8].Reply = FromHex("01 DDCCBBAA");
    Server.Answers[10].Reply = FromHex("01 0201 0403 05 0706 14131211 24232221 34333231 0908");
    Server.Answers[25].Reply = FromHex("01 44332211");
    const uint32_t file = OpenServed();
    ASSERT_NE(file, kNone);
    EXPECT_EQ(GroupOfKey(file, "k"), 0x11223344U);
    FileHeaderRecord header{};
    header.Size = 8 * 4 + 3;
    header.ModuloVerified = 77;
    ASSERT_TRUE(Run([&](StatusRecord* status) { return QXGetFileHeader(file, &header, status); }));
    EXPECT_EQ((std::array{header.Version, header.FrameSize, header.Threshold, header.SizeLock, header.Modulo,
                          header.RecordCount, header.Alpha, header.ModuloVerified}),
              (std::array{0x0102U, 0x0304U, 5U, 0x0607U, 0x11121314U, 0x21222324U, 0x31323334U, 77U}));
    Log();
    EXPECT_TRUE(Close(file));
    EXPECT_EQ(Log(), (Lines{"09 DDCCBBAA"}));
}

// What a server gives to a read, and what it takes from a write; and what becomes of a callback that refuses.
TEST_F(RemoteCalls, DataTravelsThroughTheCallback) {
    const uint32_t file = OpenServed();
    std::string taken;
    Server.OnCall = [&](std::span<qx::TransferDescriptor* const> descriptors) -> std::optional<uint32_t> {
        for (qx::TransferDescriptor* descriptor : descriptors) {
            const auto function = reinterpret_cast<qx::TransferFunction>(descriptor->Words[0]);
            const bool receives = descriptor->Words[2] != 0;
            uint32_t length = 0;
            void* address = nullptr;
            uint32_t error = 0;
            if (function(receives ? 1 : 0, descriptor, 4, &length, &address, &error) == 0) {
                return error;
            }
            if (receives) {
                std::copy_n("DATA", length, static_cast<char*>(address));
            } else {
                taken += '<' + std::string(static_cast<const char*>(address), length) + '>';
            }
        }
        return std::nullopt;
    };
    EXPECT_EQ(Get(file, "key"), "DATA");
    EXPECT_TRUE(Put(file, "key", "record"));
    EXPECT_EQ(taken, "<key><key><record>");
    RefuseCallback(2, 1, {1, 2, 3});
    EXPECT_FALSE(Get(file, "key"));
    EXPECT_EQ(LastStatus(), (Status{1105, 0, 1201}));
    RefuseCallback(0, 2, {1, 2, 3});
    EXPECT_FALSE(Put(file, "key", "record"));
    EXPECT_EQ(LastStatus(), (Status{1105, 0, 1200}));
}

// What a name, with the parameter file of its volume, leads to: how the server is asked for, and for what.
TEST_F(RemoteCalls, NamesAndParametersLeadToAServer) {
    const std::string host(qx::theLibrary.Host());
    const std::string here = Path("");
    std::string canonical = here + "F";
    std::replace(canonical.begin(), canonical.end(), '/', '\\');
    const std::string inShare = "V\\" + canonical.substr(canonical.find('\\', 1) + 1);
    struct Case {
        std::string Name;
        const char* Parameters;
        std::string Connect;
        std::string Asked;
    };
    const Case cases[] = {
        {"\\\\a\\share\\d\\..\\e\\F", "", "A 'QXSRVC' 0", "SHARE\\e\\F"},
        {"//b:99/share/F", "", "B 'QXSRVC' 99", "SHARE\\F"},
        {"\\\\c:none\\s\\F", "", "C 'QXSRVC' none", "S\\F"},
        {"\\\\d:0x10\\s\\F", "", "D 'QXSRVC' 16", "S\\F"},
        {"\\\\e:x\\s\\F", "", "E:X 'QXSRVC' 0", "S\\F"},
        {here + "F", "", host + " 'QXSRVC' 0", canonical.substr(1)},
        {here + "F", "ServerName = far TcpIpPort = 12 NamedPipeName = pipe", "FAR 'PIPE' 12", canonical.substr(1)},
        {here + "F", "SERVERNAME = FAR2 SHARENAME = V NAMEDPIPENAME = NONE", "FAR2 '' 0", inShare},
        {"\\\\" + host + ":7" + here + "F", "SERVERNAME = FAR3 TCPIPPORT = 12", "FAR3 'QXSRVC' 7", canonical.substr(1)},
    };
    for (const Case& c : cases) {
        // A server that is known is not connected to again.
        StopLibrary();
        StartLibrary();
        WriteWholeFile(Path("MOXPARAM"), c.Parameters);
        Log();
        ASSERT_NE(OpenServed({}, c.Name.c_str()), kNone) << c.Name;
        EXPECT_EQ(Server.Log.front(), "connect " + c.Connect);
        EXPECT_TRUE(Server.Log.back().ends_with("plain " + c.Asked)) << Server.Log.back() << " for " << c.Asked;
    }
    WriteWholeFile(Path("MOXPARAM"), "SERVERNAME = " + std::string(250, 'S'));
    Log();
    EXPECT_EQ(OpenServed({}, (here + "F").c_str()), kNone);
    EXPECT_EQ(LastStatus(), (Status{1006, 0, 0}));
    EXPECT_EQ(Log(), Lines{});
}

TEST_F(RemoteCalls, ConnectingFailsInManyWays) {
    struct Case {
        std::function<void(ScriptedServer&)> Prepare;
        Status Expected;
        bool Disconnected;
    };
    const auto answer = [](uint8_t opcode, const char* digits) {
        return [=](ScriptedServer& server) { server.Answers[opcode].Reply = FromHex(digits); };
    };
    const Case cases[] = {
        {[](ScriptedServer& server) {
             server.Failing = {{"Connect", 7}};
         },
         {1104, 0, 7},
         false},
        {[](ScriptedServer& server) { server.Answers[0].Error = 8; }, {1105, 0, 8}, true},
        {answer(0, "01 020909 00000000000000000000000000000000"), {1018, 0, 0}, true},
        {answer(0, "01 030000"), kNothing, false},
        {answer(0, "01 040000 00000000000000000000000000000000"), kNothing, false},
        {answer(0, "01 0300"), {1105, 0, 0}, true},
        {answer(0, ""), {1105, 0, 0}, true},
        {answer(0, "00 F703 00 00000000"), {1015, 0, 0}, true},
        {[](ScriptedServer& server) { server.Answers[0].ClaimedLength = 0xFFFFFFFF; }, {1105, 0, 0}, true},
        {answer(1, "00 FE03"), {1022, 0, 0}, false},
        {answer(1, "01 000000"), {1105, 0, 0}, false},
    };
    for (const Case& c : cases) {
        StopLibrary();
        StartLibrary();
        const auto answers = Server.Answers;
        c.Prepare(Server);
        Log();
        const Holdings before = Held();
        Buffer(kName) = kServed;
        uint32_t file = kNone;
        const auto open = [&](StatusRecord* status) { return QXOpenFile(Session, kName, nullptr, &file, status); };
        EXPECT_EQ(Called(open), c.Expected);
        EXPECT_EQ(std::ranges::count(Log(), "disconnect"), c.Disconnected ? 1 : 0);
        if (c.Expected != kNothing) {
            EXPECT_EQ(qx::Connections().empty(), c.Expected[0] == 1104 || c.Disconnected);
            EXPECT_TRUE(!qx::Connections().empty() || Held() == before);
            Server.Failing = {};
            Server.Answers = answers;
            EXPECT_EQ(Called(open), kNothing) << "the next use of the name tries again";
        }
        Server.Answers = answers;
    }
}

TEST_F(RemoteCalls, AServerThatIsNotThereLeavesItsNameLocal) {
    Server.Failing = {{"Connect", 1005}};
    Log();
    const uint32_t file = CreateAndOpen("F");
    EXPECT_TRUE(Put(file, "k", "v"));
    EXPECT_EQ(Get(file, "k"), "v");
    EXPECT_EQ(Log().size(), 1U) << "the name of this computer is tried once";
    EXPECT_FALSE(CreateServed({}));
    EXPECT_EQ(LastStatus(), (Status{1020, 0, 0})) << "no directory has that name";
    EXPECT_EQ(Log(), (Lines{"connect SRV 'QXSRVC' 0"}));
    Server.Failing = {};
    EXPECT_EQ(OpenServed(), kNone);
    EXPECT_EQ(LastStatus(), (Status{231, 1, 0}));
    EXPECT_EQ(Log(), Lines{});
    EXPECT_EQ(qx::Connections().size(), 2U);

    WriteWholeFile(Path("MOXPARAM"), "SERVERNAME = AWAY");
    Server.Failing = {{"Connect", 1005}};
    EXPECT_EQ(Open("F"), file + 1) << "a volume whose server is away is used where it is";
    EXPECT_EQ(Log(), (Lines{"connect AWAY 'QXSRVC' 0"}));
}

// Whatever a server does in the middle of its work, each call fails by itself and everything can be closed.
TEST_F(RemoteCalls, AServerMayFailAtAnyCall) {
    struct Case {
        ScriptedServer::Answer Answer;
        Status Expected;
    };
    const auto reply = [](const char* digits) { return ScriptedServer::Answer{{}, FromHex(digits), {}}; };
    const Case cases[] = {
        {{.Error = 77}, {1105, 0, 77}},
        {{.Error = 0}, {1105, 0, 0}},
        {{.Error = 1201}, {1105, 0, 1201}},
        {reply(""), {1105, 0, 0}},
        {reply("00"), {1105, 0, 0}},
        {reply("00 64"), {1105, 0, 0}},
        {reply("00 0000 05 01000000"), {1105, 0, 0}},
        {reply("00 6400"), {100, 0, 0}},
        {reply("00 6800 02 01020304"), {104, 2, 0x04030201}},
        {reply("00 FFFF FF FFFFFFFF"), {0xFFFF, 0xFF, 0xFFFFFFFF}},
        {{.Error = {}, .Reply = "\1", .ClaimedLength = 1000}, {1105, 0, 0}},
    };
    const std::function<int32_t(uint32_t, StatusRecord*)> calls[] = {
        [](uint32_t file, StatusRecord* status) { return QXReadRecord(file, kKey, kData, status); },
        [](uint32_t file, StatusRecord* status) { return QXReadNextKeyIdGroup(file, kData, status); },
        [](uint32_t file, StatusRecord* status) { return QXGetFileHeader(file, nullptr, status); },
        [](uint32_t file, StatusRecord* status) { return QXVerifyGroup(file, 0, 0, kKey, kData, status); },
        [this](uint32_t, StatusRecord* status) { return QXFlush(Session, status); },
        [this](uint32_t, StatusRecord* status) { return QXUnlockAll(Session, status); },
        [this](uint32_t, StatusRecord* status) {
            return QXGetStatistics(Session, 1, kName, 0, 0, kKey, kData, status);
        },
        [this](uint32_t, StatusRecord* status) { return QXCreateFile(Session, kName, nullptr, status); },
        [this](uint32_t file, StatusRecord* status) { return QXOpenFile(Session, kName, nullptr, &file, status); },
        [](uint32_t file, StatusRecord* status) { return QXCloseFile(file, status); },
        [this](uint32_t, StatusRecord* status) { return QXCloseSession(Session, status); },
    };
    const auto answers = Server.Answers;
    for (const Case& c : cases) {
        const uint32_t file = OpenServed();
        ASSERT_NE(OpenServed(), kNone);
        for (auto& [opcode, answer] : Server.Answers) {
            answer = c.Answer;
        }
        for (uint8_t opcode = 0; opcode <= 28; ++opcode) {
            Server.Answers[opcode] = c.Answer;
        }
        for (const auto& call : calls) {
            EXPECT_EQ(Called([&](StatusRecord* status) { return call(file, status); }), c.Expected);
        }
        EXPECT_EQ(Called([&](StatusRecord* status) { return QXReadRecord(file, kKey, kData, status); })[0], 1100U);
        Server.Answers = answers;
        OpenSession();
    }
    ExpectNothingHeld();
}

TEST_F(RemoteCalls, AHandleMayBeUsedAgain) {
    const OpenOptions reuse{sizeof reuse, 1, 0, 0, 0, 0, 0, 0};
    const uint32_t first = OpenServed();
    EXPECT_EQ(OpenServed(reuse), first);
    Server.Answers[8].Reply = FromHex("01 06000000");
    EXPECT_EQ(OpenServed(reuse), first + 1) << "the server says that it is another file";
    Server.Answers[8].Reply = FromHex("01 05000000");
    EXPECT_EQ(OpenServed(), first + 2);
    EXPECT_EQ(CountOf(qx::Counter::ActiveSessionFiles), 3U);
    Log();
    EXPECT_TRUE(CloseSession());
    EXPECT_EQ(Log(), (Lines{"09 05000000", "09 06000000", "09 05000000", "02 04030201"}));
    EXPECT_EQ(CountOf(qx::Counter::ActiveSessionFiles), 0U);
}

// Every allocation on the way to an open file is refused once; the server is never left with a file that has no handle.
TEST_F(RemoteCalls, WithoutMemoryNothingStaysOpenOnTheServer) {
    uint32_t file = kNone;
    for (uint64_t nth = 1; file == kNone; ++nth) {
        Faults.Fail(Call::HeapAllocate, nth);
        Log();
        file = OpenServed();
        const Lines log = Log();
        const auto sent = [&](const char* opcode) {
            return std::ranges::count_if(log, [&](const std::string& line) { return line.starts_with(opcode); });
        };
        EXPECT_EQ(sent("08 ") - sent("09 "), file == kNone ? 0 : 1);
        EXPECT_TRUE(file != kNone || LastStatus() == (Status{1015, 0, 0}));
        ASSERT_LT(nth, 20U);
    }
    EXPECT_FALSE(Faults.Delivered());
    ExpectNothingHeld();
}

TEST_F(RemoteCalls, EverythingEndsInOrderAndTheFirstFailureIsTold) {
    ASSERT_NE(OpenServed(), kNone);
    ASSERT_NE(OpenServed({}, "\\\\OTHER\\SHARE\\F"), kNone);
    Log();
    Server.Answers[5].Reply = FromHex("00 6800 01 00000000");
    EXPECT_FALSE(Flush());
    EXPECT_EQ(LastStatus(), (Status{104, 1, 0}));
    EXPECT_EQ(Log(), (Lines{"05 04030201", "05 04030201"})) << "the second server is told all the same";

    Server.Answers[9].Reply = FromHex("00 6800 02 00000000");
    Server.Answers[2].Error = 9;
    Server.Failing = {{"Disconnect", 10}};
    EXPECT_FALSE(Run([](StatusRecord* status) { return QXTerminate(status); }));
    EXPECT_EQ(LastStatus(), (Status{104, 2, 0}));
    EXPECT_EQ(Log(), (Lines{"09 05000000", "09 05000000", "02 04030201", "02 04030201", "disconnect", "disconnect",
                            "close", "terminate"}));
    StartLibrary();
    Server.Answers[9].Reply = Server.Answers[2].Reply = FromHex("01");
    Server.Answers[2].Error.reset();
    ASSERT_NE(OpenServed(), kNone);
    EXPECT_FALSE(Run([](StatusRecord* status) { return QXTerminate(status); }));
    EXPECT_EQ(LastStatus(), (Status{1106, 0, 10}));
    StartLibrary();
}

TEST_F(RemoteCalls, CountForTheProcessAndTheSession) {
    const uint32_t file = OpenServed();
    const qx::CounterSet& session = qx::theLibrary.Sessions.PayloadOf<qx::SessionRecord>(Session)->Counters;
    const uint32_t before = CountOf(qx::Counter::WriteRecords);
    EXPECT_TRUE(Put(file, "k", "v"));
    EXPECT_EQ(CountOf(qx::Counter::WriteRecords), before + 1);
    EXPECT_EQ(session.Value(qx::Counter::WriteRecords), 1U);
    EXPECT_EQ(session.Value(qx::Counter::OpenFiles), 1U);
    EXPECT_EQ(session.Value(qx::Counter::ActiveSessionFiles), 1U);
    EXPECT_TRUE(Flush());
    EXPECT_TRUE(Run([&](StatusRecord* status) { return QXUnlockAll(Session, status); }));
    const uint32_t closes = CountOf(qx::Counter::CloseFiles);
    EXPECT_TRUE(Close(file));
    EXPECT_EQ(CountOf(qx::Counter::CloseFiles), closes + 1);
    for (const qx::Counter once :
         {qx::Counter::Flushes, qx::Counter::UnlockAlls, qx::Counter::CloseFiles, qx::Counter::RemoveSessionFiles}) {
        EXPECT_EQ(session.Value(once), 1U);
    }
    EXPECT_EQ(session.Value(qx::Counter::ActiveSessionFiles), 0U);
}

TEST_F(RemoteCalls, FramesThatTheProtocolCannotTellAreRefused) {
    EXPECT_FALSE(CreateServed({sizeof(CreateOptions), 1, 65536, 0, 0, 120}));
    EXPECT_EQ(LastStatus(), (Status{1008, 1, 0}));
    EXPECT_TRUE(CreateServed({sizeof(CreateOptions), 1, 65535, 0, 0, 120}));
}

}  // namespace
}  // namespace qx_test
