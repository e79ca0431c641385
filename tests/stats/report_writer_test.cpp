#include "stats/report_writer.h"

#include <algorithm>
#include <gtest/gtest.h>

#include "support/raised.h"
#include "support/test_library.h"

namespace qx_test {
namespace {

constexpr uint32_t kNames = 0;
constexpr uint32_t kValues = 1;
constexpr StatusRecord kRefused{77, 8, 9};

class ReportWriter : public testing::Test {
  protected:
    ReportWriter() {
        AcceptCallbacks();
        session_.Buffers = qx::BufferAccess(TestCallback);
        Buffer(kNames) = Buffer(kValues) = "left over";
    }

    // A report of everything that can be written.
    static void WriteAll(qx::ReportWriter& report) {
        report.Name("Number");
        report.Number(12);
        report.Name("None");
        report.Number(0xFFFFFFFF);
        report.Name("Large");
        report.Number64(0xFFFFFFFFFFFFFFFF);
        report.Name("Errors");
        report.NumberOrEmpty(0);
        report.Name("More errors");
        report.NumberOrEmpty(7);
        report.List("List", [&] {
            report.Bytes("A");
            report.Boolean(true);
        });
        report.List("Empty list", [] {});
        report.List("Ended", [&] {
            report.Boolean(false);
            report.End();
        });
        report.Table("Table", {"First", "Second"}, [&] {
            for (const uint32_t row : {3U, 4U}) {
                report.Nested([&] {
                    report.Number(row);
                    report.Bytes("");
                });
            }
        });
        report.Table("Empty table", {"Column"}, [] {});
        report.Name("After");
        report.Bytes("x");
        report.Finish();
    }

    Status Write() {
        return Raised([&] {
            qx::ReportWriter report(session_, kNames, kValues);
            WriteAll(report);
        });
    }

    qx::SessionRecord session_;
};

const std::string kAllNames =
    "Number\xFENone\xFELarge\xFE"
    "Errors\xFEMore errors\xFEList\xFE"
    "Empty list\xFE"
    "Ended\xFETable\xFD"
    "First\xFCSecond\xFE"
    "Empty table\xFD"
    "Column\xFE"
    "After\xFE";
const std::string kAllValues =
    "12\xFE-1\xFE"
    "18446744073709551615\xFE\xFE"
    "7\xFE"
    "A\xFDtrue\xFE\xFE"
    "false\xFE"
    "3\xFD"
    "4\xFE\xFEx\xFE";

TEST_F(ReportWriter, MarksEndWhatTheyEnd) {
    EXPECT_EQ(Write(), kNothing);
    EXPECT_EQ(Buffer(kNames), kAllNames);
    EXPECT_EQ(Buffer(kValues), kAllValues);
}

// An entry of no bytes takes the deeper marks before it away, up to the first byte that is none, be it a mark's or not.
TEST_F(ReportWriter, OnlyDeeperMarksAreDropped) {
    qx::ReportWriter report(session_, kNames, kValues);
    report.Bytes("key\xFA\xF9\xFB\xFD");
    report.End();
    report.Nested([&] { report.Bytes("\xF9\xFA\xFD"); });
    report.Finish();
    EXPECT_EQ(Buffer(kValues), "key\xFA\xF9\xFB\xFD\xFE\xFE\xF9\xFE");
}

TEST_F(ReportWriter, OutputsGrowUpToTheSessionsLimit) {
    for (const uint32_t spare : {0U, 1U}) {
        session_.MaximumRecordSize = static_cast<uint32_t>(std::max(kAllNames.size(), kAllValues.size())) - spare;
        Buffer(kNames).clear();
        Buffer(kValues).clear();
        EXPECT_EQ(Write(), spare == 0 ? kNothing : (Status{1002, 0, 0}));
        EXPECT_EQ(Buffer(kNames) == kAllNames, spare == 0);
    }
    session_.MaximumRecordSize = 10;
    Buffer(kNames).clear();
    qx::ReportWriter report(session_, kNames, kValues);
    EXPECT_EQ(Raised([&] { report.Name("nine char"); }), kNothing);
    EXPECT_EQ(Raised([&] { report.Name(""); }), (Status{1002, 0, 0}));
    EXPECT_EQ(Buffer(kNames), "nine char\xFE") << "what was written stays";
}

// A callback that refuses its n-th call, and counts those that come after that.
uint32_t callsUntilRefusal = 0;
uint32_t callsAfterRefusal = 0;

int32_t RefusingCallback(uint32_t operation, uint32_t buffer, uint32_t length, uint32_t* outLength, void** outAddress,
                         StatusRecord* status) {
    if (callsUntilRefusal == 0) {
        ++callsAfterRefusal;
    } else if (--callsUntilRefusal == 0) {
        *status = kRefused;
        return 0;
    }
    return TestCallback(operation, buffer, length, outLength, outAddress, status);
}

// Every call for room and both final ones, each refused in its turn: nothing is asked for after that.
TEST_F(ReportWriter, ARefusedBufferEndsTheReport) {
    session_.Buffers = qx::BufferAccess(RefusingCallback);
    uint32_t nth = 0;
    Status status{};
    do {
        Buffer(kNames).clear();
        Buffer(kValues).clear();
        callsUntilRefusal = ++nth;
        callsAfterRefusal = 0;
        status = Write();
        EXPECT_EQ(callsAfterRefusal, 0U) << nth;
        EXPECT_EQ(status, callsUntilRefusal == 0 ? Words(kRefused) : kNothing) << nth;
    } while (status != kNothing);
    EXPECT_GT(nth, 20U);
    EXPECT_EQ(Buffer(kValues), kAllValues);
    session_.Buffers = qx::BufferAccess(nullptr);
    EXPECT_EQ(Write(), (Status{160, 0, 0}));
}

}  // namespace
}  // namespace qx_test
