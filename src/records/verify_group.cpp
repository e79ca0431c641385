#include <algorithm>

#include "records/group_rule.h"
#include "records/verify.h"
#include "storage/layout/frame_header.h"
#include "storage/layout/free_list_frame.h"
#include "storage/layout/variable_number.h"
#include "storage/operation_context.h"

namespace qx {

namespace {

// Walks one group frame by frame, long records included, and measures how it is stored. Every step returns false once a
// problem has been reported.
class GroupCheck {
  public:
    GroupCheck(OperationContext& context, uint32_t group, Verification& result)
        : context_(context),
          split_(context.File.Modulo),
          group_(group),
          frameSize_(context.File.FrameSize),
          frame_(context.Input.Buffer),
          result_(result) {}

    void Run() {
        FirstFailure failure;
        failure.Run([&] {
            if (Start() && CheckRecords() && CheckEnd()) {
                WriteStatistics();
            }
        });
        if (!failure.Good()) {
            ReportFailure(failure);
        }
    }

  private:
    bool Fail(Problem problem) {
        result_.Problem.Number(static_cast<uint32_t>(problem));
        return false;
    }

    bool FailAtPlace(Problem problem) {
        Fail(problem);
        result_.Problem.File(place_.File).Number(place_.Frame).Number(place_.Position);
        return false;
    }

    bool FailTerminator() {
        Fail(Problem::Terminator);
        result_.Problem.Number(group_).File(place_.File).Number(place_.Frame).Number(place_.Position);
        return false;
    }

    // Frames that cannot be read are problems of the file; everything else is a failure of the call.
    void ReportFailure(const FirstFailure& failure) {
        const StatusRecord& status = failure.Status();
        const auto code = static_cast<Code>(status.Code);
        const bool primary = status.Detail1 == Number(WhichFile::Primary);
        if (code == Code::BadFrameHeader) {
            Fail(primary ? Problem::PrimaryHeader : Problem::OverflowHeader);
            result_.Problem.Number(reading_[0]);
        } else if (code == Code::ReadFailed || code == Code::OpenFailed) {
            Fail(primary ? Problem::Unreadable : Problem::LinkBeyondFile);
            if (primary) {
                result_.Problem.Text(context_.File.PathOf(WhichFile::Primary));
            } else {
                result_.Problem.Number(highWater_).Number(wantedFrame_);
            }
        } else {
            failure.RaiseIfAny();
        }
    }

    bool Start() {
        context_.Input.Group = group_;
        context_.GroupLock.Lock(group_, false);
        reading_ = frame_;
        context_.Input.ReadPrimaryFrame(ShortRead::Fail);
        place_ = context_.Input.Place;
        LearnHighWater();
        return true;
    }

    // Where the overflow file ends, from its list; a file that was never needed has no frame that a group could use.
    void LearnHighWater() {
        const bool mayMake = !context_.File.OpenedReadOnly;
        if (!mayMake && CacheFileExists(context_.File.PathOf(WhichFile::Overflow)) == FileResult::Failed) {
            return;
        }
        context_.AttachOverflow(mayMake ? OverflowAttachment::Missing::Create : OverflowAttachment::Missing::Fail);
        context_.AllocationLock.Lock(kOverflowAllocation, true);
        uint8_t* list = context_.Buffer(3);
        reading_ = list;
        if (ReadFrame(context_, WhichFile::Overflow, 0, frameSize_, ShortRead::Allow, list)) {
            highWater_ = FreeListFrame(list).Entry(0);
        }
        reading_ = frame_;
    }

    bool NextFrame() {
        const uint32_t link = ForwardLink(frame_);
        if (!skipDepthRaised_ && SkipLink(frame_) == link) {
            ++skipDepth_;
            skipDepthRaised_ = true;
        }
        if (link >= highWater_) {
            Fail(Problem::LinkBeyondFile);
            result_.Problem.Number(highWater_).Number(link);
            return false;
        }
        wantedFrame_ = link;
        ReadFrame(context_, WhichFile::Overflow, link, frameSize_, ShortRead::Fail, frame_);
        ++overflowFrames_;
        if (OwnerGroup(frame_) != group_ || !context_.OverflowHolds(overflowFrames_)) {
            Fail(Problem::ForeignFrame);
            result_.Problem.Number(link).Number(OwnerGroup(frame_));
            return false;
        }
        place_ = {WhichFile::Overflow, link, kOverflowHeaderLength};
        ++recordDepth_;
        ++frameVisits_;
        const uint32_t next = ForwardLink(frame_);
        outOfOrder_ = outOfOrder_ || (next != 0 && next != link + 1);
        return true;
    }

    bool LeaveUsedUpFrame() { return place_.Position < frameSize_ || NextFrame(); }

    bool ReadNumber(uint32_t* value, uint32_t* size) {
        NumberDecoder number;
        for (bool last = false; !last;) {
            if (!LeaveUsedUpFrame()) {
                return false;
            }
            last = number.Take(frame_[place_.Position]);
            if (!number.IsSound()) {
                return FailTerminator();
            }
            ++place_.Position;
        }
        *value = number.Value();
        *size = number.Size();
        return true;
    }

    bool CheckKey(uint32_t length) {
        KeyHash hash;
        for (uint32_t i = 0; i < length; ++i) {
            if (!LeaveUsedUpFrame()) {
                return false;
            }
            hash.Take(frame_[place_.Position++]);
        }
        return GroupOf(hash.Value(), split_) == group_ || Fail(Problem::ForeignKey);
    }

    bool PassData(uint32_t length) {
        while (length >= frameSize_ - place_.Position) {
            length -= frameSize_ - place_.Position;
            if (!NextFrame()) {
                return false;
            }
        }
        place_.Position += length;
        return true;
    }

    bool CheckRecord() {
        ++records_;
        skipDepthRaised_ = false;
        recordDepth_ = skipDepth_;
        frameVisits_ += skipDepth_;
        uint32_t length = 0;
        uint32_t lengthSize = 0;
        uint32_t keyLength = 0;
        uint32_t keyLengthSize = 0;
        if (!ReadNumber(&length, &lengthSize) || !ReadNumber(&keyLength, &keyLengthSize)) {
            return false;
        }
        if (length < uint64_t{keyLength} + keyLengthSize) {
            return FailTerminator();
        }
        if (!CheckKey(keyLength) || !PassData(length - keyLengthSize - keyLength)) {
            return false;
        }
        if (frame_[place_.Position] != kRecordTerminator) {
            return FailTerminator();
        }
        ++place_.Position;
        if (!LeaveUsedUpFrame()) {
            return false;
        }
        depthSquares_ += recordDepth_ * recordDepth_;
        return true;
    }

    bool CheckRecords() {
        while (frame_[place_.Position] != kEndOfGroup) {
            if (!CheckRecord()) {
                return false;
            }
        }
        return true;
    }

    bool CheckEnd() {
        if (ForwardLink(frame_) != 0 || SkipLink(frame_) != 0) {
            Fail(Problem::LastFrameLinks);
            result_.Problem.File(place_.File).Number(place_.Frame);
            return false;
        }
        freeBytes_ = frameSize_ - place_.Position;
        const uint8_t* mark = frame_ + place_.Position;
        const uint8_t* end = frame_ + frameSize_;
        const uint8_t fill = context_.FillCharacter();
        const uint8_t* other = std::find_if(mark + 1, end, [&](uint8_t b) { return b != fill; });
        if (other != end) {
            place_.Position = static_cast<uint32_t>(other - frame_);
            return FailAtPlace(Problem::NotFilled);
        }
        return true;
    }

    void WriteStatistics() {
        VerificationReport& report = result_.Statistics;
        report.Number(outOfOrder_ ? 1 : 0).Number(records_).Number(overflowFrames_).Number(frameVisits_);
        report.Number(freeBytes_).Number(depthSquares_).Close();
    }

    OperationContext& context_;
    const ModuloSplit split_;
    const uint32_t group_;
    const uint32_t frameSize_;
    uint8_t* const frame_;  // image of the current frame
    Verification& result_;

    FramePlace place_;
    const uint8_t* reading_ = nullptr;  // buffer that is being read into
    uint32_t wantedFrame_ = 0;
    uint32_t highWater_ = 1;

    bool skipDepthRaised_ = false;
    uint64_t skipDepth_ = 1;    // frames that a scan visits to reach the current record
    uint64_t recordDepth_ = 0;  // and those of the record itself
    uint64_t frameVisits_ = 1;
    uint64_t records_ = 0;
    uint64_t overflowFrames_ = 0;
    uint64_t depthSquares_ = 0;
    uint32_t freeBytes_ = 0;
    bool outOfOrder_ = false;
};

}  // namespace

void CheckGroup(FileCall& call, uint32_t group, Verification& result) {
    const PrimaryAttachment attachment(*call.File);
    OperationContext context(*call.File, call.Levels);
    GroupCheck(context, group, result).Run();
}

}  // namespace qx
