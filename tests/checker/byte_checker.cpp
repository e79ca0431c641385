#include "byte_checker.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <new>

#include "bytes.h"
#include "frame_file.h"
#include "group_walk.h"
#include "overflow_map.h"
#include "problem_list.h"

namespace qx_check {

namespace {

constexpr uint8_t kHeaderLengths[] = {22, 26, 32};
constexpr size_t kLongestHeader = 32;
constexpr uint32_t kSmallestFrameSize = 256;
constexpr uint32_t kSmallestThreshold = 25;

constexpr uint64_t kAlphaOffset = 15;
constexpr uint64_t kRecordCountOffset = 22;

// What one process may keep back before it writes the header.
constexpr uint32_t kAlphaMarginFrames = 2;
constexpr uint32_t kRecordCountMargin = 20;

Header DecodeHeader(const uint8_t* bytes) {
    Header header;
    header.headerLength = bytes[0];
    header.modulo = Get32(bytes + 9);
    header.frameSize = Get16(bytes + 13);
    header.alpha = Get32(bytes + kAlphaOffset);
    header.threshold = bytes[19];
    header.sizeLock = Get16(bytes + 20);
    if (header.headerLength >= 26) {
        header.recordCount = Get32(bytes + kRecordCountOffset);
    }
    if (header.headerLength == 32) {
        header.frameSize |= static_cast<uint32_t>(Get16(bytes + 26)) << 16;
        header.alpha |= static_cast<uint64_t>(Get32(bytes + 28)) << 32;
    }
    return header;
}

// False when the header leaves no frames to look at.
bool CheckHeader(FrameFile& primary, ProblemList& problems, Report& report) {
    std::array<uint8_t, kLongestHeader> bytes{};
    primary.Read(0, std::min<uint64_t>(primary.Length(), bytes.size()), bytes.data());
    if (std::find(std::begin(kHeaderLengths), std::end(kHeaderLengths), bytes[0]) == std::end(kHeaderLengths)) {
        problems.Add({FileKind::Primary, 0, 0}, "first byte is ", +bytes[0], ", not 22, 26 or 32");
        return false;
    }
    report.header = DecodeHeader(bytes.data());
    const Header& header = report.header;
    if (header.threshold < kSmallestThreshold) {
        problems.Add({FileKind::Primary, 0, 19}, "Threshold ", +header.threshold, " is below ", kSmallestThreshold);
    }
    if (header.frameSize < kSmallestFrameSize) {
        problems.Add({FileKind::Primary, 0, 13}, "FrameSize ", header.frameSize, " is below ", kSmallestFrameSize);
        return false;
    }
    const uint64_t due = uint64_t{header.modulo} * header.frameSize;
    if (primary.Length() != due || due == 0) {
        problems.Add(FileKind::Primary, "length ", primary.Length(), " is not Modulo ", header.modulo, " x FrameSize ",
                     header.frameSize, " = ", due);
    }
    return std::min(primary.Length(), due) >= header.frameSize;
}

void CheckCounts(const Options& options, ProblemList& problems, const Report& report) {
    if (options.allowCountDrift) {
        return;
    }
    const Header& header = report.header;
    // A stored Alpha below that of an empty file with a 32-byte header is read as that, whatever the header length, and
    // later changes build on the value read. The shorter headers may so carry their missing bytes as a surplus for
    // good.
    const uint64_t alpha = std::max(header.alpha, kLongestHeader + 1 + uint64_t{14} * (header.modulo - 1));
    const int64_t surplus = static_cast<int64_t>(kLongestHeader) - header.headerLength;
    const int64_t alphaMargin = int64_t{kAlphaMarginFrames} * header.frameSize * options.openProcesses;
    const int64_t alphaDrift = header.headerLength == 32
                                   ? static_cast<int64_t>(alpha - report.alpha)
                                   : static_cast<int32_t>(static_cast<uint32_t>(alpha - report.alpha));
    const int64_t shortfall = options.allowCutSurplus ? surplus : 0;
    if (alphaDrift < -alphaMargin - shortfall || alphaDrift > alphaMargin + surplus) {
        problems.Add({FileKind::Primary, 0, kAlphaOffset}, "Alpha is ", header.alpha, ", but the groups come to ",
                     report.alpha);
    }
    const int64_t countMargin = int64_t{kRecordCountMargin} * options.openProcesses;
    const int64_t countDrift = static_cast<int32_t>(header.recordCount - static_cast<uint32_t>(report.recordCount));
    if (header.headerLength >= 26 && (countDrift < -countMargin || countDrift > countMargin)) {
        problems.Add({FileKind::Primary, 0, kRecordCountOffset}, "RecordCount is ", header.recordCount,
                     ", but the groups hold ", report.recordCount, " records");
    }
}

void CheckGroups(FrameFile& primary, FrameFile& overflow, const Options& options, const RecordCallback& onRecord,
                 ProblemList& problems, Report& report) {
    const Header& header = report.header;
    OverflowMap map = CheckFreeList(overflow, header.frameSize, options, problems, report);
    GroupWalk walk(primary, overflow, header, map, options, problems, onRecord);
    const uint64_t groups = std::min<uint64_t>(header.modulo, primary.Length() / header.frameSize);
    bool allWhole = groups == header.modulo;
    for (uint32_t group = 0; group < groups; ++group) {
        const GroupTotals totals = walk.Walk(group);
        allWhole = allWhole && totals.whole;
        report.alpha += std::min<uint64_t>(totals.usedBytes, header.frameSize);
        report.recordCount += totals.records;
        report.chains += totals.overflowFrames > 0 ? 1 : 0;
        report.chainFrames += totals.overflowFrames;
        report.longestChain = std::max(report.longestChain, totals.overflowFrames);
    }
    CheckAllFramesUsed(map, options, problems, report);
    if (allWhole) {
        CheckCounts(options, problems, report);
    }
}

}  // namespace

Report CheckFile(const std::string& pathWithoutExtension, const Options& options, const RecordCallback& onRecord) {
    Report report;
    ProblemList problems(std::filesystem::path(pathWithoutExtension).filename().string(), options.maximumProblems);
    std::string failure;
    try {
        FrameFile primary(pathWithoutExtension + ".LK", false);
        FrameFile overflow(pathWithoutExtension + ".OV", true);
        if (CheckHeader(primary, problems, report)) {
            CheckGroups(primary, overflow, options, onRecord, problems, report);
        }
    } catch (const UnreadableFile& error) {
        failure = error.what();
    } catch (const std::bad_alloc&) {
        failure = pathWithoutExtension + ": not enough memory to check a file of this size";
    }
    report.problems = problems.TakeLines();
    if (!failure.empty()) {
        report.readable = false;
        report.problems.push_back(failure);
    }
    return report;
}

}  // namespace qx_check
