// A process that is forked off while the library is started.
#include <unistd.h>

#include "support/file_test.h"
#include "support/held_ranges.h"
#include "support/other_process.h"

namespace qx_test {
namespace {

class ForkedProcess : public FileTest {};

TEST_F(ForkedProcess, SharesNothingWithItsParent) {
    const uint32_t file = CreateAndOpen("F", FixedFile(1, 256));
    ASSERT_TRUE(Put(file, "k", std::string(1000, 'k')));
    const std::string lockFile = Path("MOXLOCKS");
    constexpr uint64_t kFirstSlot = 0x7FFFFFFF00000001;
    const std::vector<Range> marked = {{INT64_MAX, INT64_MAX}};

    OtherProcess child([&](OtherProcess::Turn& turn) {
        EXPECT_FALSE(Get(file, "k"));
        EXPECT_EQ(LastStatus(), (Status{1100, 0, 0}));
        uint32_t session = kNone;
        EXPECT_FALSE(Run([&](StatusRecord* s) { return QXOpenSession(TestCallback, nullptr, &session, s); }));
        EXPECT_EQ(LastStatus(), (Status{1100, 0, 0}));
        EXPECT_FALSE(Run([](StatusRecord* status) { return QXTerminate(status); }));
        EXPECT_EQ(LastStatus(), (Status{1100, 0, 0}));
        turn.HandOver();  // 1: the parent still has everything

        StartLibrary();
        const uint32_t own = Open("F");
        EXPECT_EQ(Get(own, "k"), std::string(1000, 'k'));
        EXPECT_TRUE(Put(own, "child", "data"));
        EXPECT_EQ(HeldRanges(lockFile), (std::vector<Range>{{kFirstSlot, kFirstSlot + 1}}));
        turn.HandOver();  // 2: both use the file
        StopLibrary();
        turn.HandOver();  // 3: the child has left

        turn.HandOver();
    });
    EXPECT_EQ(HeldRanges(lockFile), (std::vector<Range>{{kFirstSlot, kFirstSlot}}));
    EXPECT_EQ(HeldRanges(Path("F.LK")), marked);
    EXPECT_TRUE(Get(file, "k"));
    EXPECT_TRUE(child.Continue());
    EXPECT_EQ(Get(file, "child"), "data");
    EXPECT_TRUE(child.Continue());
    EXPECT_EQ(HeldRanges(lockFile), (std::vector<Range>{{kFirstSlot, kFirstSlot}}));
    EXPECT_TRUE(Close(file));
    EXPECT_EQ(HeldRanges(lockFile), std::vector<Range>());
    EXPECT_TRUE(child.Finish());
}

// The locks of a process end with it, whatever it has forked off.
TEST_F(ForkedProcess, KeepsNoLocksOfItsParent) {
    StopLibrary();
    int toGrandchild[2];
    ASSERT_EQ(::pipe(toGrandchild), 0);
    OtherProcess parent([&](OtherProcess::Turn& turn) {
        StartLibrary();
        CreateAndOpen("F");
        int fromGrandchild[2];
        EXPECT_EQ(::pipe(fromGrandchild), 0);
        char byte = 0;
        if (::fork() == 0) {
            EXPECT_EQ(::write(fromGrandchild[1], &byte, 1), 1);
            ::close(toGrandchild[1]);
            ::_exit(static_cast<int>(::read(toGrandchild[0], &byte, 1)));  // until the test closes its end
        }
        EXPECT_EQ(::read(fromGrandchild[0], &byte, 1), 1);  // the fork is complete on its side, too
        turn.HandOver();
    });
    EXPECT_FALSE(HeldRanges(Path("MOXLOCKS")).empty());
    parent.Kill();
    EXPECT_TRUE(HeldRanges(Path("MOXLOCKS")).empty());
    EXPECT_TRUE(HeldRanges(Path("F.LK")).empty());
    StartLibrary();
    EXPECT_TRUE(Delete("F")) << "nobody has it open";
    ::close(toGrandchild[0]);
    ::close(toGrandchild[1]);
}

}  // namespace
}  // namespace qx_test
