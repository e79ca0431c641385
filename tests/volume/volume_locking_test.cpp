// The lock file of a volume, the slots in it, and the marks on the files: what is locked when, as the system tells it,
// and what happens when others hold it.
#include "volume/volume_locking.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

#include "locking/lock_offsets.h"
#include "support/file_test.h"
#include "support/held_ranges.h"
#include "support/other_process.h"

namespace qx_test {
namespace {

namespace fs = std::filesystem;
using qx::LockMap;
using qx::SystemError;

constexpr uint64_t kFirstPosition = 0x7FFFFFFF00000000;

Range ByteAt(uint32_t offset) {
    return {kFirstPosition + offset, kFirstPosition + offset};
}

std::vector<Range> Slots(uint32_t first, uint32_t last) {
    return {{kFirstPosition + 1 + first, kFirstPosition + 1 + last}};
}

std::vector<Range> MarkOf(uint32_t slot) {
    return {{INT64_MAX - slot, INT64_MAX - slot}};
}

class VolumeLocking : public FileTest {
  protected:
    // Locks of a file that another process holds.
    class Others {
      public:
        explicit Others(const std::string& path) : file_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {}
        ~Others() { ::close(file_); }
        Others(const Others&) = delete;
        Others& operator=(const Others&) = delete;

        void Lock(uint64_t position, uint32_t length = 1) const {
            struct flock range {};
            range.l_type = F_WRLCK;
            range.l_start = static_cast<off_t>(position & INT64_MAX);
            range.l_len = static_cast<off_t>(length);
            EXPECT_EQ(::fcntl(file_, F_OFD_SETLK, &range), 0);
        }

      private:
        const int file_;
    };

    // A library that reads these parameters.
    void Begin(std::string_view parameters) {
        StopLibrary();
        for (const char* name : {"F.LK", "F.OV", "MOXLOCKS"}) {
            fs::remove(Path(name));
        }
        WriteWholeFile(Path("MOXPARAM"), parameters);
        StartLibrary();
    }

    std::vector<Range> Locked() const { return HeldRanges(Path("MOXLOCKS")); }

    // A file whose parts are both open.
    uint32_t OpenWithOverflow() {
        const uint32_t file = CreateAndOpen("F", FixedFile(1, 256));
        EXPECT_TRUE(Put(file, "k", std::string(1000, 'k'))) << testing::PrintToString(LastStatus());
        return file;
    }

    static const qx::VolumeRecord& Volume() { return *qx::Volumes().begin()->second; }
};

TEST_F(VolumeLocking, TheLockFileIsInUseAsLongAsTheVolume) {
    const uint32_t file = CreateAndOpen("F");
    EXPECT_EQ(Locked(), Slots(0, 0));
    EXPECT_TRUE(Volume().Locks.Supported);
    EXPECT_EQ(Volume().Settings.GroupLockTimeout, 60U);
    const uint32_t first = Session;
    OpenSession();
    const uint32_t other = Open("F");
    ASSERT_TRUE(Close(file));
    EXPECT_EQ(Locked(), Slots(0, 0));
    ASSERT_TRUE(Put(other, "k", "data"));
    ASSERT_TRUE(Run([&](StatusRecord* status) { return QXCloseSession(Session, status); }));
    EXPECT_EQ(Locked(), std::vector<Range>());
    EXPECT_FALSE(Volume().LockFileEntry.IsOpen());
    Session = first;
    EXPECT_NE(Open("F"), kNone);
    EXPECT_EQ(Locked(), Slots(0, 0));
    EXPECT_EQ(fs::file_size(Path("MOXLOCKS")), 0U);
}

TEST_F(VolumeLocking, TheFirstFreeUserSlotIsTaken) {
    Begin("MAXIMUMUSERS=3 GROUPLOCKTIMEOUT=7");
    Others others(Path("MOXLOCKS"));
    others.Lock(kFirstPosition + 1, 2);
    EXPECT_NE(CreateAndOpen("F"), kNone);
    EXPECT_EQ(Volume().Locks.UserSlot, 2U);
    EXPECT_EQ(Volume().Settings.GroupLockTimeout, 7U);
    EXPECT_EQ(Volume().Locks.Map.Users(), 3U);
    EXPECT_EQ(HeldRanges(Path("F.LK")), MarkOf(2));
    Begin("MAXIMUMUSERS=2");
    Others all(Path("MOXLOCKS"));
    all.Lock(kFirstPosition + 1, 2);
    EXPECT_FALSE(Create("F"));
    EXPECT_EQ(LastStatus(), (Status{1021, 0, 0}));
    EXPECT_FALSE(fs::exists(Path("F.LK")));
}

TEST_F(VolumeLocking, ProcessesHaveSlotsOfTheirOwn) {
    StopLibrary();
    OtherProcess other([&](OtherProcess::Turn& turn) {
        StartLibrary();
        CreateAndOpen("F");
        turn.HandOver();
    });
    StartLibrary();
    EXPECT_NE(Open("F"), kNone);
    EXPECT_EQ(Locked(), Slots(0, 1));
    EXPECT_EQ(Joined(HeldRanges(Path("F.LK"))), (std::vector<Range>{{INT64_MAX - 1, INT64_MAX}}));
    other.Kill();
    EXPECT_EQ(Locked(), Slots(1, 1));
}

TEST_F(VolumeLocking, WhereLocksDoNotWork) {
    Begin("LOCKS=FALSE");
    OpenWithOverflow();
    EXPECT_FALSE(fs::exists(Path("MOXLOCKS")));
    EXPECT_EQ(HeldRanges(Path("F.LK")), std::vector<Range>());
    EXPECT_FALSE(Volume().Locks.Supported);

    Begin("");
    Faults.Fail(Call::Lock, 1, SystemError::Other, true);
    const uint32_t without = OpenWithOverflow();
    EXPECT_FALSE(Volume().Locks.Supported);
    EXPECT_FALSE(Volume().LockFileEntry.IsOpen());
    Faults.Clear();
    ASSERT_TRUE(Close(without));
    EXPECT_NE(Open("F"), kNone);
    EXPECT_TRUE(Volume().Locks.Supported) << "found out anew";

    Begin("LOCKS=TRUE");
    Faults.Fail(Call::Lock, 1);
    EXPECT_FALSE(Create("F"));
    EXPECT_EQ(LastStatus(), (Status{1024, 0, 0}));
    EXPECT_FALSE(Volume().LockFileEntry.IsOpen());
    EXPECT_TRUE(Create("F"));
}

TEST_F(VolumeLocking, FailuresOfTheLockFile) {
    const struct {
        Call At;
        uint64_t Nth;
        SystemError Error;
        bool IsThere;
        uint32_t Told;  // 0: gets over it
    } cases[] = {
        {Call::Open, 1, SystemError::Other, true, 0},  // as if another process had just made it
        {Call::Open, 1, SystemError::NoHandles, true, 1029},    {Call::Open, 1, SystemError::NoHandles, false, 1029},
        {Call::Exists, 2, SystemError::NoHandles, false, 1029}, {Call::Create, 1, SystemError::NoHandles, false, 1029},
        {Call::Create, 1, SystemError::Other, false, 0},        {Call::Lock, 2, SystemError::InUse, true, 1026},
        {Call::Lock, 2, SystemError::Other, true, 1027},        {Call::Lock, 3, SystemError::InUse, true, 1026},
        {Call::Lock, 3, SystemError::Other, true, 1027},
    };
    Begin("");
    ASSERT_TRUE(Create("OTHER"));  // reads the parameters
    for (const auto& [at, nth, error, isThere, told] : cases) {
        SCOPED_TRACE(std::string(NameOf(at)) + ' ' + std::to_string(nth));
        fs::remove(Path("MOXLOCKS"));
        if (isThere) {
            WriteWholeFile(Path("MOXLOCKS"), "");
        }
        const Holdings before = Held();
        Faults.Fail(at, nth, error);
        EXPECT_EQ(Create("F"), told == 0);
        EXPECT_TRUE(Faults.Delivered());
        Faults.Clear();
        if (told != 0) {
            EXPECT_EQ(LastStatus(), (Status{told, 0, 0}));
            EXPECT_FALSE(fs::exists(Path("F.LK")));
            EXPECT_EQ(Held(), before);
        } else {
            EXPECT_TRUE(Delete("F"));
        }
    }
    fs::remove(Path("MOXLOCKS"));
    fs::create_directory(Path("MOXLOCKS"));
    EXPECT_FALSE(Create("F"));
    EXPECT_EQ(LastStatus(), (Status{1020, 0, 0}));
}

TEST_F(VolumeLocking, EveryOpenPartIsMarked) {
    const uint32_t file = OpenWithOverflow();
    EXPECT_EQ(HeldRanges(Path("F.LK")), MarkOf(0));
    EXPECT_EQ(HeldRanges(Path("F.OV")), MarkOf(0));
    EXPECT_TRUE(qx::CloseOneIdleFile());
    EXPECT_TRUE(qx::CloseOneIdleFile());
    EXPECT_EQ(HeldRanges(Path("F.LK")), std::vector<Range>());
    Others others(Path("F.OV"));
    others.Lock(~uint64_t{0});
    EXPECT_FALSE(Get(file, "k"));
    EXPECT_EQ(LastStatus(), (Status{1026, 0, 0}));
    EXPECT_EQ(HeldRanges(Path("F.LK")), MarkOf(0));
    ExpectNothingHeld();
    EXPECT_EQ(OpenParts(), 1);
    for (const char* parameters : {"READONLY=YES", "CACHEFLUSHLOCKS=NO"}) {
        StopLibrary();
        WriteWholeFile(Path("MOXPARAM"), parameters);
        StartLibrary();
        EXPECT_TRUE(Get(Open("F"), "k"));
        EXPECT_EQ(HeldRanges(Path("F.LK")), std::vector<Range>()) << parameters;
        EXPECT_EQ(Locked(), Slots(0, 0)) << parameters;
    }
}

TEST_F(VolumeLocking, IdentifierSlots) {
    const auto openSession = [&](uint32_t most, std::string_view identifier) {
        SessionOptions options{};
        options.Size = sizeof options;
        options.MaximumIdentifierSessions = most;
        options.IdentifierLength = static_cast<uint32_t>(
            identifier.copy(reinterpret_cast<char*>(options.Identifier), sizeof options.Identifier));
        EXPECT_TRUE(Run([&](StatusRecord* status) { return QXOpenSession(TestCallback, &options, &Session, status); }));
    };
    const auto locked = [&](std::vector<uint32_t> offsets) {
        std::vector<Range> ranges = Slots(0, 0);
        std::transform(offsets.begin(), offsets.end(), std::back_inserter(ranges), ByteAt);
        return Joined(ranges);
    };
    const LockMap map;
    const uint32_t ab = map.IdentifierUnit("ab");
    const uint32_t none = map.IdentifierUnit("");
    ASSERT_EQ(ab, ('a' * 10U + 'b') * 1024 + 1025);

    ASSERT_TRUE(Create("F"));
    openSession(2, "ab");
    const uint32_t first = Open("F");
    EXPECT_EQ(Locked(), locked({ab}));
    openSession(2, "ab");
    const uint32_t second = Open("F");
    EXPECT_EQ(Locked(), locked({ab, ab + 1}));
    openSession(0, "ab");
    EXPECT_NE(Open("F"), kNone);
    EXPECT_EQ(Locked(), locked({ab, ab + 1})) << "a session without a limit needs none";
    openSession(5, "");
    EXPECT_NE(Open("F"), kNone);
    EXPECT_EQ(Locked(), locked({none, ab, ab + 1}));
    EXPECT_NE(Open("F"), kNone);
    ASSERT_TRUE(Close(first));
    EXPECT_EQ(Locked(), locked({none, ab + 1}));
    ASSERT_TRUE(Close(second));

    Others others(Path("MOXLOCKS"));
    others.Lock(qx::LockPosition(ab));
    openSession(4, "ab");
    const uint32_t third = Open("F");
    EXPECT_EQ(Locked(), locked({none, ab, ab + 1})) << "one is held by another process";
    ASSERT_TRUE(Close(third));
    others.Lock(qx::LockPosition(ab + 1), 3);
    EXPECT_EQ(Open("F"), kNone);
    EXPECT_EQ(LastStatus(), (Status{1022, 0, 0}));
    Faults.Fail(Call::Lock, 1);
    EXPECT_EQ(Open("F"), kNone);
    EXPECT_EQ(LastStatus(), (Status{1025, 0, 0}));
    EXPECT_EQ(Locked(), locked({none, ab, ab + 1, ab + 2, ab + 3}));
}

TEST_F(VolumeLocking, ProgramsThatAreStartedGetNoHandles) {
    OpenWithOverflow();
    int found = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (fs::read_symlink(entry.path(), gone).string().starts_with(fs::canonical(Directory.Path()).string())) {
            const int descriptor = std::stoi(entry.path().filename());
            EXPECT_EQ(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << fs::read_symlink(entry.path());
            ++found;
        }
    }
    EXPECT_EQ(found, 3) << "both parts and the lock file";
}

}  // namespace
}  // namespace qx_test
