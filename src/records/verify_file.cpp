#include <optional>

#include "records/group_rule.h"
#include "records/verify.h"
#include "storage/layout/free_list_frame.h"
#include "storage/operation_context.h"
#include "storage/select_hold.h"

namespace qx {

namespace {

void Report(VerificationReport& report, Problem problem) {
    report.Number(static_cast<uint32_t>(problem));
}

// What the free-frame list holds.
struct ListMeasures {
    uint32_t Frames = 1;
    uint64_t Entries = 1;
    uint32_t HighWater = 1;
};

// Runs `read` and returns the code that it failed with, if it is one of the two that tell of damage.
template <class Read>
std::optional<Code> DamageOf(Read&& read) {
    FirstFailure failure;
    if (failure.Run(read)) {
        return std::nullopt;
    }
    const auto code = static_cast<Code>(failure.Status().Code);
    if (code != Code::ReadFailed && code != Code::OpenFailed && code != Code::BadFrameHeader) {
        failure.RaiseIfAny();
    }
    return code;
}

void ReportHeaderDamage(const OpenFile& file, Code damage, VerificationReport& problem) {
    if (damage == Code::BadFrameHeader) {
        Report(problem, Problem::PrimaryHeader);
        problem.Number(0);
    } else {
        Report(problem, Problem::Unreadable);
        problem.Text(file.PathOf(WhichFile::Primary));
    }
}

// Walks the list frames, whose lock is held; false when there is a problem with one.
bool CheckList(OperationContext& context, uint32_t overflowFrames, ListMeasures& measures,
               VerificationReport& problem) {
    const auto fail = [&](Problem kind, uint32_t frame) {
        Report(problem, kind);
        problem.Number(frame);
        return false;
    };
    uint8_t* buffer = context.Buffer(3);
    const FreeListFrame list(buffer);
    const uint32_t capacity = (context.File.FrameSize - 7) / 4;
    measures = {0, 0, 1};
    uint32_t frame = 0;
    do {
        const std::optional<Code> damage = DamageOf(
            [&] { ReadFrame(context, WhichFile::Overflow, frame, context.File.FrameSize, ShortRead::Fail, buffer); });
        if (damage) {
            return fail(*damage == Code::BadFrameHeader ? Problem::OverflowHeader : Problem::ListUnreadable, frame);
        }
        if (list.Count() > capacity || !list.IsDescending() || ++measures.Frames > overflowFrames) {
            return fail(Problem::ListOrder, frame);
        }
        if (frame == 0) {
            measures.HighWater = list.Entry(0);
        }
        measures.Entries += list.Count();
        frame = list.Next();
    } while (frame != 0);
    return true;
}

// The frames of the overflow file, none if it is missing; nothing if it is there and cannot be opened or measured. If
// there are any, they are looked at again once nobody can take or give back frames: list and length belong together.
std::optional<uint32_t> HoldOverflowFrames(OperationContext& context) {
    uint32_t frames = 0;
    const std::optional<Code> damage = DamageOf([&] {
        context.AttachOverflow(OverflowAttachment::Missing::Fail);
        frames = context.OverflowFrames();
        if (frames > 0) {
            context.AllocationLock.Lock(kOverflowAllocation, true);
            frames = context.OverflowFrames();
        }
    });
    if (!damage) {
        return frames;
    }
    const std::string path = context.File.PathOf(WhichFile::Overflow);
    const bool missing = damage == Code::OpenFailed && CacheFileExists(path) == FileResult::Failed;
    return missing ? std::optional(0U) : std::nullopt;
}

void WriteStatistics(OpenFile& file, uint32_t primaryFrames, uint32_t overflowFrames, const ListMeasures& list,
                     VerificationReport& report) {
    const ModuloSplit split(file.Modulo);
    const RunningCounts::Values running = file.Counts.Running();
    const uint64_t frameSize = file.FrameSize;
    report.Number(file.Modulo).Number(frameSize).Number(file.Group0HeaderSize);
    report.Number(primaryFrames * frameSize).Number(overflowFrames * frameSize);
    report.Number(split.Level).Number(split.Multiplier).Number(split.Remainder);
    report.Number(file.SizeLock).Number(running.RecordCount).Number(running.Alpha);
    report.Number(list.Frames).Number(1 + list.Entries - list.Frames).Number(list.HighWater);
}

uint32_t PrimaryFrames(OperationContext& context) {
    uint32_t frames = 0;
    const bool known = OsGetSize(context.HandleOf(WhichFile::Primary), context.File.FrameSize, &frames);
    return known ? frames : 0;
}

// Under the hold, so that the number of groups and the file's length belong together. False when there is a problem.
bool CheckHeldFile(FileCall& call, Verification& result) {
    OpenFile& file = *call.File;
    OperationContext context(file, call.Levels);
    uint32_t frames = PrimaryFrames(context);
    if (frames > 0 && frames != file.Modulo) {
        // Another process may have changed the number of groups since this one read the header.
        DamageOf([&] { ReadHeader(context, HeaderAccess::Shared); });
        frames = PrimaryFrames(context);
    }
    if (frames != file.Modulo) {
        Report(result.Problem, Problem::PrimaryLength);
        result.Problem.Number(uint64_t{frames} * file.FrameSize).Number(file.Modulo).Number(file.FrameSize);
        return false;
    }
    const std::optional<uint32_t> overflowFrames = HoldOverflowFrames(context);
    if (!overflowFrames) {
        Report(result.Problem, Problem::ListUnreadable);
        result.Problem.Number(0);
        return false;
    }
    ListMeasures list;
    if (*overflowFrames > 0 && !CheckList(context, *overflowFrames, list, result.Problem)) {
        return false;
    }
    WriteStatistics(file, frames, *overflowFrames, list, result.Statistics);
    return true;
}

}  // namespace

void CheckFile(FileCall& call, Verification& result) {
    std::optional<PrimaryAttachment> attachment;
    const std::optional<Code> damage = DamageOf([&] { attachment.emplace(*call.File); });
    if (damage) {
        ReportHeaderDamage(*call.File, *damage, result.Problem);
        return;
    }
    TakeSelectHold(call);
    FirstFailure failure;
    failure.Run([&] { result.Held = CheckHeldFile(call, result); });
    if (!result.Held) {
        ReleaseSelectHold(call);
    }
    failure.RaiseIfAny();
}

}  // namespace qx
