// Runs the tests of what the library does with files on files of a server, with the same expectations, but for those
// that the difference itself makes fail.
#include <gtest/gtest.h>
#include <string>

#include "support/files_are_remote.h"

namespace {

struct LocalOnly {
    const char* Tests;
    const char* Why;
};

constexpr LocalOnly kLocalOnly[] = {
    {"*LibraryCalls.*", "starts and stops the library, of which there are two here"},
    {"*SessionCalls.*", "a session comes to the server with the first name that it uses there"},
    {"ForkedProcess.*", "the new process would have to connect to a server of its own"},
    {"NoWaitEvent.EveryClaimIsRefused", "the client has mutexes of its own to claim before the server's"},
    {"ConcurrentGroupLockCalls.ClosingKeepsNobodyFromGivingTheGroupUp", "the client's API mutex waits for the server"},
    {"GroupLockCalls.TheEndOfTheLibraryGivesEveryGroupUpFirst", "the client closes one session after another"},
    {"ConcurrentGroupLockCalls.AGroupTakenLateGoesWithTheHandle", "likewise"},
    {"ConcurrentGroupLockCalls.AHandleThatIsBeingClosedIsNotReused", "likewise"},
    {"FileCalls.HandlesFollowTheirOptions", "looks for the number of a buffer object, which stays with the client"},
    {"FileCalls.OptionsAreDefaultedAndMovedIntoTheirRange", "frames above 65,535 bytes cannot be asked for"},
    {"FileCalls.AFailedCreateLeavesNoPrimaryFile", "frames above 65,535 bytes cannot be asked for"},
    {"RecordCalls.NoMemoryToWorkWith", "frames above 65,535 bytes cannot be asked for"},
    {"Files/ModelTest.AgreesWithAMap/8", "frames above 65,535 bytes cannot be asked for"},
    {"Files/SlowModelTest.AgreesWithAMap/8", "frames above 65,535 bytes cannot be asked for"},
    {"RecordCalls.RefusedBuffersLeaveEverythingAsItWas", "what the callback said becomes 1105"},
    {"WalkCalls.RefusedBuffers", "what the callback said becomes 1105"},
    {"LockCalls.FailWithoutATrace", "what the callback said becomes 1105"},
    {"Verification.ARefusedReportIsAFailureThatLeavesNoHold", "what the callback said becomes 1105"},
};

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    qx_test::filesAreRemote = true;
    std::string filter = GTEST_FLAG_GET(filter);
    filter += filter.find('-') == std::string::npos ? '-' : ':';
    for (const LocalOnly& entry : kLocalOnly) {
        filter += std::string(entry.Tests) + ':';
    }
    GTEST_FLAG_SET(filter, filter);
    return RUN_ALL_TESTS();
}
