#include "group_walk.h"

#include <algorithm>

#include "bytes.h"

namespace qx_check {

namespace {

constexpr uint8_t kPrimaryHeaderLength = 13;
constexpr uint8_t kOverflowHeaderLength = 14;
constexpr uint8_t kEndOfGroup = 0x80;
constexpr uint8_t kTerminator = 0xFF;

constexpr uint64_t kForwardLinkOffset = 1;
constexpr uint64_t kSkipLinkOffset = 5;
constexpr uint64_t kStampOffset = 9;  // OwnerGroup in an overflow frame

}  // namespace

GroupWalk::GroupWalk(FrameFile& primary, FrameFile& overflow, const Header& header, OverflowMap& map,
                     const Options& options, ProblemList& problems, const RecordCallback& onRecord)
    : primary_(primary),
      overflow_(overflow),
      header_(header),
      map_(map),
      options_(options),
      problems_(problems),
      onRecord_(onRecord),
      split_(SplitModulo(header.modulo)),
      frame_(header.frameSize) {}

GroupTotals GroupWalk::Walk(uint32_t group) {
    group_ = group;
    totals_ = {};
    dataStartIndex_.reset();
    held_.reset();
    keys_.clear();
    keyTable_.clear();
    try {
        StartPrimaryFrame();
        while (!AtEndOfGroup()) {
            ReadRecord();
        }
        FinishGroup();
        totals_.whole = true;
    } catch (const BrokenGroup&) {
        ClaimRestOfChain();
    }
    CheckDuplicates();
    return totals_;
}

void GroupWalk::StartPrimaryFrame() {
    file_ = FileKind::Primary;
    frameNumber_ = group_;
    chainIndex_ = 0;
    primary_.Read(uint64_t{group_} * header_.frameSize, header_.frameSize, frame_.data());
    nextLink_ = Get32(frame_.data() + kForwardLinkOffset);

    const uint8_t headerLength = group_ == 0 ? header_.headerLength : kPrimaryHeaderLength;
    if (frame_[0] != headerLength) {
        Break(At(0), "first byte is ", +frame_[0], ", not ", +headerLength);
    }
    const uint32_t stamp = Get32(frame_.data() + kStampOffset);
    stampDiffers_ = stamp != header_.modulo;
    if (stampDiffers_) {
        stampSplit_ = SplitModulo(stamp);
        if (!StampAgrees(group_, stamp, header_.modulo)) {
            problems_.Add(At(kStampOffset), "ModuloStamp ", stamp, " places other keys in group ", group_,
                          " than the Modulo ", header_.modulo);
        }
    }
    position_ = headerLength;
    totals_.usedBytes = uint64_t{headerLength} + 1;
}

void GroupWalk::NextFrame() {
    const uint32_t link = nextLink_;
    const uint32_t skipLink = Get32(frame_.data() + kSkipLinkOffset);
    if (link == 0) {
        Break(At(kForwardLinkOffset), "ForwardLink is 0, but the records of group ", group_, " go on");
    }
    if (dataStartIndex_ == chainIndex_) {
        held_ = {At(kSkipLinkOffset), chainIndex_, link, skipLink};
    } else {
        CheckSkipLink(At(kSkipLinkOffset), skipLink, link, "ForwardLink");
    }
    nextLink_ = 0;
    if (!map_.Names(link)) {
        Break(At(kForwardLinkOffset), "ForwardLink ", link, " is not between 1 and ", map_.limit - 1);
    }
    if (map_.chained[link]) {
        Break(At(kForwardLinkOffset), "ForwardLink ", link, " names a frame that is in a chain already");
    }
    overflow_.Read(uint64_t{link} * header_.frameSize, header_.frameSize, frame_.data());
    file_ = FileKind::Overflow;
    frameNumber_ = link;
    ++chainIndex_;
    if (frame_[0] != kOverflowHeaderLength) {
        Break(At(0), "first byte is ", +frame_[0], ", not ", +kOverflowHeaderLength);
    }
    const uint32_t owner = Get32(frame_.data() + kStampOffset);
    if (owner != group_) {
        Break(At(kStampOffset), "OwnerGroup is ", owner, ", but the frame is in the chain of group ", group_);
    }
    map_.chained[link] = true;
    if (map_.listed[link]) {
        problems_.Add(At(0), "the frame is in the chain of group ", group_, " and in the free list");
    }
    nextLink_ = Get32(frame_.data() + kForwardLinkOffset);
    position_ = kOverflowHeaderLength;
    ++totals_.overflowFrames;
}

bool GroupWalk::AtEndOfGroup() {
    if (position_ == header_.frameSize) {
        NextFrame();
    }
    return frame_[position_] == kEndOfGroup;
}

void GroupWalk::ReadRecord() {
    const Place start = Here();
    uint32_t lengthWidth = 0;
    uint32_t keyLengthWidth = 0;
    const uint32_t length = ReadNumber("Length", &lengthWidth);
    const uint32_t keyLength = ReadNumber("KeyLength", &keyLengthWidth);
    const uint64_t beforeData = uint64_t{keyLengthWidth} + keyLength;
    if (beforeData > length) {
        Break(start, "Length ", length, " is less than the record's key of ", keyLength, " bytes");
    }
    Key key{start, 0, keys_.size(), keyLength};
    PassBytes(keyLength, &keys_);
    key.hash = HashKey(Text(key));
    CheckKey(key);
    keyTable_.push_back(key);

    // A key that ends a frame exactly has its data begin there too, with none of its bytes: readers skip from where the
    // key ended.
    dataStartIndex_ = chainIndex_;
    data_.clear();
    PassBytes(length - beforeData, onRecord_ ? &data_ : nullptr);
    PassTerminator();
    dataStartIndex_.reset();

    totals_.usedBytes += uint64_t{lengthWidth} + length + 1;
    ++totals_.records;
    if (onRecord_) {
        onRecord_(Text(key), data_, group_);
    }
}

void GroupWalk::PassTerminator() {
    if (position_ == header_.frameSize) {
        NextFrame();
    }
    if (frame_[position_] != kTerminator) {
        Break(Here(), "record terminator is ", +frame_[position_], ", not ", +kTerminator);
    }
    ++position_;
    if (held_) {
        const bool beyondNextFrame = chainIndex_ > held_->chainIndex + 1;
        CheckSkipLink(held_->place, held_->skipLink, beyondNextFrame ? frameNumber_ : held_->forwardLink,
                      beyondNextFrame ? "the frame of the record's terminator" : "ForwardLink");
        held_.reset();
    }
}

void GroupWalk::FinishGroup() {
    if (nextLink_ != 0) {
        problems_.Add(At(kForwardLinkOffset), "ForwardLink is ", nextLink_, " in the frame of the end-of-group mark");
    }
    CheckSkipLink(At(kSkipLinkOffset), Get32(frame_.data() + kSkipLinkOffset), 0, "the end of the chain");
    const auto isFill = [fill = options_.fillCharacter](uint8_t byte) { return byte == fill; };
    const auto afterMark = frame_.begin() + static_cast<std::ptrdiff_t>(position_) + 1;
    const auto wrong = std::find_if_not(afterMark, frame_.end(), isFill);
    if (options_.checkFill && wrong != frame_.end()) {
        problems_.Add(At(static_cast<uint64_t>(wrong - frame_.begin())), "byte ", +*wrong,
                      " after the end-of-group mark is not the fill character ", +options_.fillCharacter);
    }
    ClaimRestOfChain();
}

uint32_t GroupWalk::ReadNumber(const char* name, uint32_t* width) {
    const Place start = Here();
    uint64_t value = 0;
    for (*width = 1;; ++*width) {
        if (position_ == header_.frameSize) {
            NextFrame();
        }
        const uint8_t byte = frame_[position_++];
        value = (value << 7) | (byte & 0x7FU);
        if (value > 0xFFFFFFFF) {
            Break(start, name, " does not fit 32 bits");
        }
        if (value == 0 && (byte & 0x80U) == 0) {
            Break(start, name, " begins with a zero digit");
        }
        if ((byte & 0x80U) != 0) {
            return static_cast<uint32_t>(value);
        }
    }
}

void GroupWalk::PassBytes(uint64_t count, std::string* copy) {
    while (count > 0) {
        if (position_ == header_.frameSize) {
            NextFrame();
        }
        const uint64_t piece = std::min<uint64_t>(count, header_.frameSize - position_);
        if (copy != nullptr) {
            copy->append(reinterpret_cast<const char*>(frame_.data()) + position_, piece);
        }
        position_ += piece;
        count -= piece;
    }
}

void GroupWalk::CheckSkipLink(const Place& place, uint32_t skipLink, uint32_t due, const char* why) {
    if (skipLink != due) {
        problems_.Add(place, "SkipLink is ", skipLink, ", not ", due, " (", why, ")");
    }
}

void GroupWalk::CheckKey(const Key& key) {
    const uint32_t due = GroupOf(key.hash, split_);
    if (due != group_) {
        problems_.Add(key.record, "key ", Quoted(Text(key)), " belongs to group ", due, ", not ", group_);
    } else if (stampDiffers_ && GroupOf(key.hash, stampSplit_) != group_) {
        problems_.Add(key.record, "the group's ModuloStamp sends key ", Quoted(Text(key)), " to group ",
                      GroupOf(key.hash, stampSplit_));
    }
}

void GroupWalk::CheckDuplicates() {
    std::sort(keyTable_.begin(), keyTable_.end(), [this](const Key& left, const Key& right) {
        if (left.hash != right.hash) {
            return left.hash < right.hash;
        }
        const int order = Text(left).compare(Text(right));
        return order != 0 ? order < 0 : left.start < right.start;
    });
    for (size_t i = 1; i < keyTable_.size(); ++i) {
        const Key& key = keyTable_[i];
        if (key.hash == keyTable_[i - 1].hash && Text(key) == Text(keyTable_[i - 1])) {
            problems_.Add(key.record, "key ", Quoted(Text(key)), " is in group ", group_, " already");
        }
    }
}

// So that one break in a group is not reported again as a row of leaked frames.
void GroupWalk::ClaimRestOfChain() {
    while (map_.Names(nextLink_) && !map_.chained[nextLink_]) {
        overflow_.Read(uint64_t{nextLink_} * header_.frameSize, kOverflowHeaderLength, frame_.data());
        if (frame_[0] != kOverflowHeaderLength || Get32(frame_.data() + kStampOffset) != group_) {
            return;
        }
        map_.chained[nextLink_] = true;
        ++totals_.overflowFrames;
        nextLink_ = Get32(frame_.data() + kForwardLinkOffset);
    }
}

}  // namespace qx_check
