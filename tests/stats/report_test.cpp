// The reports of QXGetStatistics, entry by entry, and its failures.
#include <array>
#include <filesystem>
#include <new>
#include <span>

#include "stats/report_writer.h"
#include "support/file_test.h"
#include "support/scripted_server.h"
#include "support/statistics.h"

namespace qx_test {
namespace {

constexpr Status kNoSuchSubject{100, 0, 0};

class Reports : FreshProcessCounters, public FileTest {
  protected:
    qx::VolumeRecord& Volume() const { return *qx::Volumes().begin()->second; }

    // Leaves a walk under way on the handle `file`; a second handle has come and gone.
    uint32_t RunScript();
};

uint32_t Reports::RunScript() {
    const uint32_t file = CreateAndOpen("F", FixedFile(3, 256));
    const uint32_t other = Open("F");
    const std::vector<std::string> keys = KeysOf(1, 3, 2);
    EXPECT_EQ(keys[0].size(), 2U);
    EXPECT_TRUE(Put(file, keys[0], "data"));
    EXPECT_EQ(Get(file, keys[0]), "data");
    EXPECT_EQ(Get(file, keys[1]), std::nullopt);
    EXPECT_TRUE(Run([&](StatusRecord* status) { return QXReadOnlyRecord(other, kKey, kData, status); }) == false);
    EXPECT_FALSE(Erase(file, keys[1]));
    EXPECT_TRUE(HeaderOf(file).has_value());
    EXPECT_EQ(GroupOfKey(file, keys[0]), 1U);
    EXPECT_TRUE(Run([&](StatusRecord* status) { return QXReadNextKeyIdGroup(file, kData, status); }));
    EXPECT_TRUE(Run([&](StatusRecord* status) { return QXClearSelect(other, status); }));
    EXPECT_TRUE(UnlockGroup(other, 0));
    EXPECT_TRUE(Flush());
    EXPECT_TRUE(Close(other));
    return file;
}

// The calls on names and handles, in the order in which every report lists them.
Report Calls(const std::array<const char*, 22>& counts) {
    constexpr std::array kLabels = {"Create Files",      "Delete Files",        "Open Files",
                                    "Close Files",       "Get File Headers",    "Read Records",
                                    "Read Only Records", "Write Records",       "Delete Records",
                                    "Clear Files",       "Shared Lock Files",   "Exclusive Lock Files",
                                    "Unlock Files",      "Shared Lock Records", "Exclusive Lock Records",
                                    "Unlock Records",    "Read Next Id Groups", "Read Previous Id Groups",
                                    "Clear Selects",     "Get Group Numbers",   "Lock Groups",
                                    "Unlock Groups"};
    static_assert(kLabels.size() == std::tuple_size_v<std::remove_cvref_t<decltype(counts)>>);
    Report report;
    for (size_t i = 0; i < kLabels.size(); ++i) {
        report.emplace_back(kLabels[i], counts[i]);
    }
    return report;
}

Report operator+(Report first, const Report& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

const Report kLiveHandles = {{"Active Session Files", "1"},
                             {"Peak Active Session Files", "2"},
                             {"Add Session Files", "2"},
                             {"Remove Session Files", "1"}};

const Report kWork = {{"Select Locks", "1"},  {"Select Unlocks", "0"},      {"Group Locks", "8"},
                      {"Group Unlocks", "8"}, {"Group Lock Suspends", "0"}, {"Group Unlock Resumes", "0"}};

const Report kFileErrors = {{"GFE Record Termination Errors", ""},
                            {"GFE Record Truncated Errors", ""},
                            {"GFE Link Errors", ""},
                            {"Read Errors", ""},
                            {"Volume Full Errors", ""},
                            {"Write Errors", ""}};

// Every operation on a record takes one group and reads one frame; the write writes one, and closing the second handle
// reads and writes the header, which the write has left behind.
TEST_F(Reports, TellWhatAScriptDid) {
    const uint32_t file = RunScript();
    const std::string volume = Volume().Name;
    const std::string name = Path("F");

    // Two groups of one session that share one lock, a lone one before them, and that of the walk after them.
    const qx::LockMap& map = Volume().Locks.Map;
    const uint32_t low = map.FileUnit(0);
    const uint32_t high = map.GroupUnit(5, 9);
    const std::string select = std::to_string(Volume().Locks.Map.SelectUnit(Record(file).NameHash)) + ",false";
    std::array<qx::ByteLock, 3> locks;
    ASSERT_EQ(Volume().ByteLocks.Acquire(locks[0], high, false, 0), qx::ByteLockResult::Granted);
    ASSERT_EQ(Volume().ByteLocks.Acquire(locks[1], low, true, 0), qx::ByteLockResult::Granted);
    ASSERT_EQ(Volume().ByteLocks.Acquire(locks[2], high, false, 0), qx::ByteLockResult::Granted);

    EXPECT_EQ(ReportOn(Session, kProcessReport),
              (Report{{"QX API Version", "1.1.1.0"},
                      {"QX API Prior Version", "1.1.0"},
                      {"QX TBX Protocol Version", "3.0.0"},
                      {"QX TBX Protocol Prior Version", "3.0.0"},
                      {"Multiple Threads", "1"},
                      {"Multiple Processes", "1"},
                      {"Full Statistics", "1"},
                      {"Select Cache", "0"},
                      {"Client Enabled", "1"},
                      {"TBX Active", "0"},
                      {"Fill Character", "0"},
                      {"Group Lock Timeout", "60"},
                      {"Volume Names", volume},
                      {"Peak Active File Handles", "2"},
                      {"Active File Handles", "2"},
                      {"Initializes", "1"},
                      {"Terminates", "0"},
                      {"Open Sessions", "1"},
                      {"Close Sessions", "0"},
                      {"Get Statistics", "1"},
                      {"Unlock Alls", "0"},
                      {"Flushes", "1"}} +
               Calls({"1", "0", "2", "1", "1", "2", "1", "1", "1", "0", "0",
                      "0", "0", "0", "0", "0", "1", "0", "1", "1", "0", "1"}) +
               Report{{"Active Sessions", "1"},
                      {"Peak Active Sessions", "1"},
                      {"Add Sessions", "1"},
                      {"Remove Sessions", "0"},
                      {"Active Volumes", "1"},
                      {"Peak Active Volumes", "1"},
                      {"Add Volumes", "1"},
                      {"Active Files", "1"},
                      {"Peak Active Files", "1"},
                      {"Add Files", "2"}} +
               kLiveHandles +
               Report{{"Expand Modulos", "0"}, {"Contract Modulos", "0"}, {"Read Frames", "8"}, {"Write Frames", "5"}} +
               kWork +
               Report{{"Read Next Allocation Errors", ""},
                      {"Read Allocation Errors", ""},
                      {"Verify Group Allocation Errors", ""}} +
               kFileErrors +
               Report{{"Allocate File Data Errors", ""},
                      {"Allocate Lock Data Errors", ""},
                      {"Allocate Temporary Data Errors", ""},
                      {"Claim Mutex Init Suspend Errors", ""},
                      {"Group Lock Init Suspend Errors", ""}}));

    const Report volumeReport =
        Report{{"Volume Name", volume},
               {"File Names", "F"},
               {"Read Only", "false"},
               {"Flush File Size Updates", "false"},
               {"Flush All Updates", "false"},
               {"Fill Character", "0"},
               {"Locks Supported", "true"},
               {"Group Lock Timeout", "60"},
               {"Byte Locks|Offset,Exclusive,Count", std::to_string(low) + ",true|" + std::to_string(high) + ",false|" +
                                                         std::to_string(high) + ",false|" + select},
               {"Lock File Handle", std::to_string(Volume().Locks.Handle)}} +
        Calls({"1", "0", "2", "1", "1", "2", "1", "1", "1", "0", "0",
               "0", "0", "0", "0", "0", "1", "0", "1", "1", "0", "1"}) +
        Report{{"Active Files", "1"}, {"Peak Active Files", "1"}, {"Add Files", "2"}} + kLiveHandles +
        Report{{"Expand Modulos", "0"}, {"Contract Modulos", "0"}, {"Read Frames", "8"}, {"Write Frames", "2"}} +
        kWork + kFileErrors + Report{{"Group Lock Init Suspend Errors", ""}};
    EXPECT_EQ(ReportOn(Session, kVolumeReport, name), volumeReport);
    EXPECT_EQ(ReportOn(Session, kVolumeReport, Path("")), volumeReport) << "the volume alone";
    EXPECT_EQ(ReportOn(Session, kVolumeReport, Path("any")), volumeReport) << "by a file that is not open";
    for (qx::ByteLock& lock : locks) {
        Volume().ByteLocks.Release(lock);
    }
    EXPECT_EQ(ValueIn(ReportOn(Session, kVolumeReport, name), "Byte Locks|Offset,Exclusive,Count"), select);

    EXPECT_EQ(ReportOn(Session, kFileReport, name),
              (Report{{"Volume Name", volume},
                      {"File Name", "F"},
                      {"Session Files", "0"},
                      {"LK File In Use Count", "0"},
                      {"OV File In Use Count", "0"},
                      {"LK File Handle", std::to_string(Record(file).PrimaryPart.Cached.Handle)},
                      {"OV File Handle", "-1"},
                      {"Read Only", "false"},
                      {"Group 0 Header Size", "32"},
                      {"Frame Size", "256"},
                      {"Threshold", "204"},
                      {"Modulo", "3"},
                      {"Alpha", "70"},
                      {"New Alpha", "70"},
                      {"Record Count", "1"},
                      {"New Record Count", "1"},
                      {"Size Lock", "2"},
                      {"Modulo Verified", "1"},
                      {"Alpha Verified", "33"},
                      {"Record Count Verified", "0"},
                      {"File Locks|Session,Exclusive", ""},
                      {"Record Locks|Session,Key Id,Exclusive", ""},
                      {"Select Locks", "1"}} +
               Calls({"0", "0", "2", "1", "1", "2", "1", "1", "1", "0", "0",
                      "0", "0", "0", "0", "0", "1", "0", "1", "1", "0", "1"}) +
               kLiveHandles +
               Report{{"Expand Modulos", "0"}, {"Contract Modulos", "0"}, {"Read Frames", "8"}, {"Write Frames", "2"}} +
               kWork + kFileErrors + Report{{"Group Lock Init Suspend Errors", ""}}));

    EXPECT_EQ(ReportOn(Session, kSessionReport, "", Session),
              (Report{{"Maximum Record Size", "0"},
                      {"Servers", ""},
                      {"Session Files", "0"},
                      {"File Locks|Volume Name,File Name,Exclusive", ""},
                      {"Record Locks|Volume Name,File Name,Key Id,Exclusive", ""},
                      {"Close Sessions", "0"},
                      {"Get Statistics", "7"},
                      {"Unlock Alls", "0"},
                      {"Flushes", "1"}} +
               Calls({"1", "0", "2", "1", "1", "2", "1", "1", "1", "0", "0",
                      "0", "0", "0", "0", "0", "1", "0", "1", "1", "0", "1"}) +
               kLiveHandles +
               Report{{"Read Next Allocation Errors", ""},
                      {"Read Allocation Errors", ""},
                      {"Verify Group Allocation Errors", ""}}));

    const Report calls = Calls(
        {"", "", "1", "0", "1", "2", "0", "1", "1", "0", "0", "0", "0", "0", "0", "0", "1", "0", "0", "1", "0", "0"});
    EXPECT_EQ(ReportOn(Session, kHandleReport, "", file), (Report{{"Session", "0"},
                                                                  {"Remote", "false"},
                                                                  {"Volume Name", volume},
                                                                  {"File Name", "F"},
                                                                  {"Read Only", "false"},
                                                                  {"Select Delimiter", "254"},
                                                                  {"Select Minimum Size", "0"},
                                                                  {"File Locks Exclusive", ""},
                                                                  {"Record Locks|Key Id,Exclusive", ""},
                                                                  {"Position Start", "0"},
                                                                  {"Position End", "0"}} +
                                                           Report(calls.begin() + 2, calls.end())));

    EXPECT_EQ(ReportOn(Session, kServersReport), (Report{{"Server Names", ""}}));

    EXPECT_TRUE(LockGroup(file, 0));
    EXPECT_TRUE(UnlockGroup(file, 0));
    const Report unloaded = ReportOn(Session, kFileReport, name);
    EXPECT_EQ(ValueIn(unloaded, "Group 0 Header Size"), "0") << "is read anew";
    EXPECT_EQ(ValueIn(unloaded, "Frame Size"), "256");
    EXPECT_EQ(ValueIn(unloaded, "Threshold"), "204");
}

// Names in order, handles in the order of their opening, and values that a report shows in a form of their own.
TEST_F(Reports, ListsAndUnusualValues) {
    for (const char* directory : {"b", "a", "a/c"}) {
        std::filesystem::create_directory(Path(directory));
    }
    const OpenOptions options{sizeof(OpenOptions), 0, 1, 'x', 77, 0, 0, 0};
    std::string volumes;
    for (const char* name : {"b/F", "a/c/F", "a/G", "a/F"}) {
        ASSERT_TRUE(Create(name, FixedFile(2, 256, 110)));
        Open(name, options);
    }
    const std::string base = Volume().Name.substr(0, Volume().Name.size() - 2);
    EXPECT_EQ(ValueIn(ReportOn(Session, kProcessReport), "Volume Names"),
              base + "a\\|" + base + "a\\c\\|" + base + "b\\");
    EXPECT_EQ(ValueIn(ReportOn(Session, kVolumeReport, Path("a/")), "File Names"), "F|G");
    EXPECT_EQ(Open("b/F"), 4U);
    ASSERT_TRUE(Close(1));
    ASSERT_TRUE(Close(0));
    EXPECT_EQ(Open("b/F"), 1U);
    EXPECT_EQ(ValueIn(ReportOn(Session, kSessionReport, "", Session), "Session Files"), "2|3|4|1");
    Record(4).Counts.Reset(0x123456789ABULL);
    const Report file = ReportOn(Session, kFileReport, Path("B/f"));
    EXPECT_EQ(ValueIn(file, "Session Files"), "4|1");
    EXPECT_EQ(ValueIn(file, "Alpha"), "1250999896491");
    EXPECT_EQ(ValueIn(file, "New Alpha"), "1250999896491");
    EXPECT_EQ(ValueIn(file, "Group 0 Header Size"), "26");
    const Report handle = ReportOn(Session, kHandleReport, "", 2);
    EXPECT_EQ(ValueIn(handle, "Read Only"), "true");
    EXPECT_EQ(ValueIn(handle, "Select Delimiter"), "120");
    EXPECT_EQ(ValueIn(handle, "Select Minimum Size"), "77");
    EXPECT_EQ(ValueIn(handle, "Position Start"), "-1");

    OpenSession(5000);
    EXPECT_EQ(ValueIn(ReportOn(Session, kSessionReport, "", Session), "Maximum Record Size"), "5000");
    EXPECT_EQ(ValueIn(ReportOn(Session, kSessionReport, "", 0), "Maximum Record Size"), "0") << "of another session";
}

// Locks on the same key and file, taken through several handles by two sessions.
TEST_F(Reports, ListTheLocksOfApplications) {
    const uint32_t first = CreateAndOpen("F", FixedFile(3, 256));
    const uint32_t second = Open("F");
    const uint32_t other = CreateAndOpen("G", FixedFile(1, 256));
    const uint32_t session = Session;
    OpenSession();
    const uint32_t theirs = Open("F");
    const auto lockFile = [&](uint32_t file, decltype(QXSharedLockFile) lock) {
        EXPECT_TRUE(Run([&](StatusRecord* status) { return lock(file, status); }));
    };
    const auto lockRecord = [&](uint32_t file, std::string_view key, decltype(QXSharedLockRecord) lock) {
        Buffer(kKey) = key;
        EXPECT_TRUE(Run([&](StatusRecord* status) { return lock(file, kKey, status); }));
    };
    lockFile(second, QXSharedLockFile);
    lockFile(theirs, QXSharedLockFile);
    lockFile(other, QXExclusiveLockFile);
    lockRecord(first, "b", QXSharedLockRecord);
    lockRecord(theirs, "b", QXSharedLockRecord);
    lockRecord(other, "x", QXSharedLockRecord);
    lockRecord(second, "ab", QXExclusiveLockRecord);
    lockRecord(first, "", QXExclusiveLockRecord);

    const Report file = ReportOn(Session, kFileReport, Path("F"));
    EXPECT_EQ(ValueIn(file, "File Locks|Session,Exclusive"), "0,false|1,false");
    EXPECT_EQ(ValueIn(file, "Record Locks|Session,Key Id,Exclusive"), "0,,true|0,ab,true|1,b,false|0,b,false");
    const Report ours = ReportOn(Session, kSessionReport, "", session);
    const std::string f = Volume().Name + ",F,";
    const std::string g = Volume().Name + ",G,";
    EXPECT_EQ(ValueIn(ours, "File Locks|Volume Name,File Name,Exclusive"), g + "true|" + f + "false");
    EXPECT_EQ(ValueIn(ours, "Record Locks|Volume Name,File Name,Key Id,Exclusive"),
              f + ",true|" + f + "ab,true|" + g + "x,false|" + f + "b,false");
    const auto ofHandle = [&](uint32_t handle) {
        const Report report = ReportOn(Session, kHandleReport, "", handle);
        return ValueIn(report, "File Locks Exclusive") + ';' + ValueIn(report, "Record Locks|Key Id,Exclusive");
    };
    EXPECT_EQ(ofHandle(first), ";,true|b,false");
    EXPECT_EQ(ofHandle(second), "false;ab,true");
    EXPECT_EQ(ofHandle(other), "true;x,false");

    EXPECT_TRUE(Run([&](StatusRecord* status) { return QXUnlockAll(session, status); }));
    EXPECT_EQ(ofHandle(second), ";");
    EXPECT_TRUE(Run([&](StatusRecord* status) { return QXUnlockAll(Session, status); }));
    ExpectNothingHeld();
}

TEST_F(Reports, SubjectsThatAreNotThere) {
    ASSERT_TRUE(Create("F"));
    struct Case {
        uint32_t Kind;
        std::string Path;
        uint32_t Subject;
        Status Expected;
    };
    const std::string long256 = Path(std::string(256 - Directory.Path().size() - 1, 'x'));
    const Case cases[] = {
        {0, "", 0, kNoSuchSubject},
        {7, "", 0, kNoSuchSubject},
        {0xFFFFFFFF, Path("F"), 0, kNoSuchSubject},
        {kVolumeReport, "", 0, kNoSuchSubject},
        {kVolumeReport, "/no/such/F", 0, kNoSuchSubject},
        {kFileReport, "", 0, kNoSuchSubject},
        {kFileReport, Path("F"), 0, kNoSuchSubject},
        {kFileReport, Path(""), 0, kNoSuchSubject},
        {kFileReport, long256, 0, kNoSuchSubject},
        {kFileReport, long256 + 'x', 0, {1000, 0, 0}},
        {kProcessReport, long256 + 'x', 0, {1000, 0, 0}},
        {kServersReport, "\\\\server", 0, {1005, 0, 0}},
        {kVolumeReport, "\\\\server\\share", 0, {1006, 0, 0}},
        {kVolumeReport, "\\\\server\\share\\", 0, kNoSuchSubject},
        {kFileReport, Path("."), 0, {1006, 0, 0}},
        {kSessionReport, "", Session + 1, {1100, 0, 1}},
        {kHandleReport, "", 0, {1100, 0, 1}},
        {kSessionReport, "", kNone, {1100, 0, 1}},
    };
    for (const Case& c : cases) {
        Buffer(kReportNames) = Buffer(kReportValues) = "left over";
        const std::string before = ValueIn(ReportOn(Session, kProcessReport), "Get Statistics");
        EXPECT_EQ(GetStatistics(Session, c.Kind, c.Path, c.Subject), c.Expected) << c.Kind << ' ' << c.Path;
        EXPECT_EQ(ValueIn(ReportOn(Session, kProcessReport), "Get Statistics"), std::to_string(std::stoul(before) + 2))
            << "a call that fails counts, too";
        ExpectNothingHeld();
    }
    Buffer(kReportNames) = Buffer(kReportValues) = "left over";
    EXPECT_EQ(GetStatistics(Session, 7), kNoSuchSubject);
    EXPECT_EQ(Buffer(kReportNames) + Buffer(kReportValues), "left overleft over") << "nothing is written";
    EXPECT_EQ(GetStatistics(Session + 1, kProcessReport), (Status{1100, 0, 1}));
}

// Whatever the callback refuses, and whatever the limit: the status is told, and nothing stays held.
TEST_F(Reports, AFailureLeavesNothingBehind) {
    const uint32_t file = RunScript();
    const Holdings before = Held();
    const std::pair<uint32_t, uint32_t> subjects[] = {{kProcessReport, 0}, {kVolumeReport, 0},    {kFileReport, 0},
                                                      {kSessionReport, 0}, {kHandleReport, file}, {kServersReport, 0}};
    for (const auto& [kind, subject] : subjects) {
        for (const uint32_t operation : {0U, 1U, 2U}) {
            uint32_t nth = 0;
            Status status{};
            do {
                Buffer(kReportNames).clear();
                Buffer(kReportValues).clear();
                RefuseCallback(operation, ++nth, {77, 8, 9});
                status = GetStatistics(Session, kind, Path("F"), subject);
                AcceptCallbacks();
                EXPECT_EQ(status, status == kNothing ? kNothing : (Status{77, 8, 9}));
                EXPECT_EQ(Held(), before);
                ExpectNothingHeld(1);
            } while (status != kNothing);
            EXPECT_GT(nth, 1U) << kind << ' ' << operation;
        }
    }
    OpenSession(10);
    for (const auto& [kind, subject] : subjects) {
        Buffer(kReportNames).clear();
        Buffer(kReportValues).clear();
        EXPECT_EQ(GetStatistics(Session, kind, Path("F"), subject), (Status{1002, 0, 0}));
        EXPECT_LE(Buffer(kReportNames).size(), 10U);
        ExpectNothingHeld(1);
    }
}

TEST_F(Reports, GrowUpToTheSessionsLimit) {
    for (const uint32_t limit : {12U, 13U}) {
        OpenSession(limit);
        Buffer(kReportNames).clear();
        Buffer(kReportValues).clear();
        EXPECT_EQ(GetStatistics(Session, kServersReport), limit == 13 ? kNothing : (Status{1002, 0, 0}));
        EXPECT_EQ(Buffer(kReportNames), limit == 13 ? "Server Names\xFE" : "");
    }
}

// An entry of no bytes takes the deeper marks before it away, up to the first byte that is none, be it a mark's or not.
TEST_F(Reports, OnlyDeeperMarksAreDropped) {
    qx::SessionRecord session;
    session.Buffers = qx::BufferAccess(TestCallback);
    Buffer(kReportNames) = Buffer(kReportValues) = "left over";
    qx::ReportWriter report(session, kReportNames, kReportValues);
    report.Bytes("key\xFA\xF9\xFB\xFD");
    report.End();
    report.Nested([&] { report.Bytes("\xF9\xFA\xFD"); });
    report.Finish();
    EXPECT_EQ(Buffer(kReportValues), "key\xFA\xF9\xFB\xFD\xFE\xFE\xF9\xFE");
}

// The remote-call library at the process's report, and servers of which one is not there.
class ServerReports : public testing::Test {
  protected:
    ServerReports() { AcceptCallbacks(); }

    void Start() {
        ApiVersionRecord version{sizeof version, 1, 1, 0};
        ASSERT_EQ(Called([&](StatusRecord* status) { return QXInitialize(&version, status); }), kNothing);
        ASSERT_EQ(Called([&](StatusRecord* status) { return QXOpenSession(TestCallback, nullptr, &session_, status); }),
                  kNothing);
    }
    void Stop() {
        EXPECT_EQ(Called([](StatusRecord* status) { return QXTerminate(status); }), kNothing);
    }

    Status OpenFile(std::string_view name, uint32_t* file) {
        Buffer(kName) = name;
        return Called([&](StatusRecord* status) { return QXOpenFile(session_, kName, nullptr, file, status); });
    }

    ScriptedServer server_;
    uint32_t session_ = kNone;
};

TEST_F(ServerReports, ListServersAndRemoteHandles) {
    Start();
    uint32_t file = kNone;
    for (const char* name : {R"(\\beta\share\F)", R"(\\alpha\share\F)"}) {
        ASSERT_EQ(OpenFile(name, &file), kNothing);
    }
    server_.Failing["Connect"] = 1005;
    EXPECT_NE(OpenFile(R"(\\gone\share\F)", &file), kNothing);
    EXPECT_EQ(ReportOn(session_, kServersReport), (Report{{"Server Names", "ALPHA|BETA|GONE"}}));
    EXPECT_EQ(ReportOn(session_, kHandleReport, "", file),
              (Report{{"Session", "0"}, {"Remote", "true"}, {"Server Name", "ALPHA"}}));
    const Report report = ReportOn(session_, kSessionReport, "", session_);
    EXPECT_EQ(ValueIn(report, "Servers"), "BETA|ALPHA");
    EXPECT_EQ(ValueIn(report, "Open Files"), "3");
    EXPECT_EQ(ValueIn(report, "Active Session Files"), "2");
    EXPECT_EQ(ValueIn(ReportOn(session_, kProcessReport), "TBX Active"), "1");

    const auto append = [](qx::AppendedOutput& output, std::string_view bytes) {
        uint32_t room = 0;
        void* to = nullptr;
        uint32_t error = 0;
        const auto transfer = reinterpret_cast<qx::TransferFunction>(output.Descriptor.Words[0]);
        ASSERT_EQ(transfer(1, &output.Descriptor, static_cast<uint32_t>(bytes.size()), &room, &to, &error), 1);
        bytes.copy(static_cast<char*>(to), room);
        output.Appended = bytes.size();
    };
    server_.OnStatistics = [&](qx::AppendedOutput& names, qx::AppendedOutput& values) {
        append(names,
               "Calls\xFE"
               "Threads\xFE");
        append(values,
               "7\xFE"
               "A\xFD"
               "B\xFE");
    };
    Report process = ReportOn(session_, kProcessReport);
    ASSERT_GT(process.size(), 2U);
    EXPECT_EQ((Report{process.end() - 3, process.end()}),
              (Report{{"Group Lock Init Suspend Errors", ""}, {"Calls", "7"}, {"Threads", "A|B"}}));
    server_.OnStatistics = [](qx::AppendedOutput&, qx::AppendedOutput& values) { values.Appended = 1 << 20; };
    EXPECT_EQ(GetStatistics(session_, kProcessReport), (Status{1107, 0, 0})) << "more than there is room for";
    server_.OnStatistics = nullptr;
    server_.Failing["GetLocalStatistics"] = 4711;
    Buffer(kReportNames).clear();
    EXPECT_EQ(GetStatistics(session_, kProcessReport), (Status{1107, 0, 4711}));
    EXPECT_TRUE(Buffer(kReportNames).ends_with("Group Lock Init Suspend Errors\xFE")) << "what was written stays";
    Stop();
}

}  // namespace
}  // namespace qx_test
