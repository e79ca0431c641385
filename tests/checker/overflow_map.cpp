#include "overflow_map.h"

#include <algorithm>
#include <limits>

#include "bytes.h"

namespace qx_check {

namespace {

constexpr uint8_t kOverflowHeaderLength = 14;
constexpr uint32_t kEntriesOffset = 7;

class FreeListCheck {
  public:
    FreeListCheck(FrameFile& overflow, uint32_t frameSize, const Options& options, ProblemList& problems,
                  Report& report)
        : overflow_(overflow),
          frameSize_(frameSize),
          options_(options),
          problems_(problems),
          report_(report),
          // A list spills and refills by exact halves, so an odd last entry is never used.
          capacity_(((frameSize - kEntriesOffset) / 4) & ~1U),
          frames_(static_cast<uint32_t>(
              std::min<uint64_t>(overflow.Length() / frameSize, std::numeric_limits<uint32_t>::max()))),
          buffer_(kEntriesOffset + size_t{4} * capacity_) {}

    OverflowMap Run() {
        report_.highWater = 1;
        if (!overflow_.Exists()) {
            problems_.Add(FileKind::Overflow, "the overflow file is missing");
        } else if (frames_ > 0) {
            CheckHead();
        } else if (overflow_.Length() > 0 && !options_.allowLeakedFrames) {
            problems_.Add(FileKind::Overflow, "length ", overflow_.Length(), " is less than one frame of ", frameSize_);
        }
        return std::move(map_);
    }

  private:
    uint32_t Entry(uint32_t index) const { return Get32(buffer_.data() + kEntriesOffset + size_t{4} * index); }

    static Place EntryPlace(uint32_t frame, uint32_t index) {
        return {FileKind::Overflow, frame, kEntriesOffset + uint64_t{4} * index};
    }

    template <typename... Parts>
    void Damaged(const Place& place, const Parts&... parts) {
        problems_.Add(place, parts...);
        map_.listIsWhole = false;
    }

    void UseFrames(uint32_t limit) {
        map_.limit = limit;
        map_.listed.resize(limit);
        map_.chained.resize(limit);
    }

    void CheckHead() {
        report_.listFrames = 1;
        overflow_.Read(0, buffer_.size(), buffer_.data());
        const uint32_t count = Get16(buffer_.data() + 1);
        if (buffer_[0] != kOverflowHeaderLength) {
            Damaged({FileKind::Overflow, 0, 0}, "first byte is ", +buffer_[0], ", not ", +kOverflowHeaderLength);
        } else if (count == 0 || count > capacity_) {
            Damaged({FileKind::Overflow, 0, 1}, "EntryCount ", count, " is not between 1 and ", capacity_);
        } else if (Entry(0) == 0) {
            Damaged(EntryPlace(0, 0), "HighWater is 0");
        }
        if (!map_.listIsWhole) {
            UseFrames(frames_);  // the groups can still be walked
            return;
        }
        const uint32_t highWater = Entry(0);
        const uint32_t firstListFrame = Get32(buffer_.data() + 3);
        report_.highWater = highWater;
        CheckLength(highWater, firstListFrame);
        UseFrames(std::min(highWater, frames_));
        TakeEntries(0, 1, count);
        CheckChain(firstListFrame);
        if (highWater == map_.limit && map_.listed[highWater - 1] && !options_.allowLeakedFrames) {
            problems_.Add({FileKind::Overflow, highWater - 1, 0},
                          "the last frame is free: the file should have been cut back");
        }
    }

    void CheckLength(uint32_t highWater, uint32_t firstListFrame) {
        const uint64_t due = uint64_t{highWater} * frameSize_;
        const bool surplus = overflow_.Length() > due && options_.allowLeakedFrames;
        if (overflow_.Length() != due && !surplus) {
            problems_.Add(FileKind::Overflow, "length ", overflow_.Length(), " is not HighWater ", highWater, " x ",
                          frameSize_, " = ", due);
        } else if (highWater == 1 && firstListFrame == 0 && !options_.allowLeakedFrames) {
            problems_.Add(FileKind::Overflow, "no frame is in use: the file should be empty");
        }
    }

    // Enters entries first to last - 1 of the list frame in the buffer; false when one cannot stand there.
    bool TakeEntries(uint32_t listFrame, uint32_t first, uint32_t last) {
        for (uint32_t i = first; i < last; ++i) {
            const uint32_t frame = Entry(i);
            if (!map_.Names(frame)) {
                Damaged(EntryPlace(listFrame, i), "free frame ", frame, " is not between 1 and ", map_.limit - 1);
                return false;
            }
            if (i > 0 && frame >= Entry(i - 1)) {
                Damaged(EntryPlace(listFrame, i), "free frame ", frame, " does not descend from ", Entry(i - 1));
                return false;
            }
            if (map_.listed[frame]) {
                Damaged(EntryPlace(listFrame, i), "frame ", frame, " is in the free list twice");
                return false;
            }
            map_.listed[frame] = true;
            ++report_.freeFrames;
        }
        return true;
    }

    // Every list frame enters its own number first, so a chain in a circle ends at the first frame met again.
    void CheckChain(uint32_t firstListFrame) {
        const uint32_t half = capacity_ / 2;
        const uint64_t halfBytes = kEntriesOffset + uint64_t{4} * half;
        uint32_t holder = 0;
        uint32_t smallest = std::numeric_limits<uint32_t>::max();
        for (uint32_t frame = firstListFrame; frame != 0; frame = Get32(buffer_.data() + 3)) {
            if (!map_.Names(frame)) {
                Damaged({FileKind::Overflow, holder, 3}, "NextListFrame ", frame, " is not between 1 and ",
                        map_.limit - 1);
                return;
            }
            overflow_.Read(uint64_t{frame} * frameSize_, halfBytes, buffer_.data());
            const uint32_t count = Get16(buffer_.data() + 1);
            if (buffer_[0] != kOverflowHeaderLength) {
                Damaged({FileKind::Overflow, frame, 0}, "first byte is ", +buffer_[0], ", not ",
                        +kOverflowHeaderLength);
                return;
            }
            if (count != half) {
                Damaged({FileKind::Overflow, frame, 1}, "EntryCount ", count, " of a chained list frame is not ", half);
                return;
            }
            if (Entry(0) != frame) {
                Damaged(EntryPlace(frame, 0), "first entry ", Entry(0), " is not the list frame's own number");
                return;
            }
            if (frame >= smallest) {
                Damaged(EntryPlace(frame, 0), "entries do not descend from ", smallest, " of list frame ", holder);
                return;
            }
            if (!TakeEntries(frame, 0, half)) {
                return;
            }
            ++report_.listFrames;
            holder = frame;
            smallest = Entry(half - 1);
        }
    }

    FrameFile& overflow_;
    const uint32_t frameSize_;
    const Options& options_;
    ProblemList& problems_;
    Report& report_;
    const uint32_t capacity_;
    const uint32_t frames_;
    std::vector<uint8_t> buffer_;
    OverflowMap map_;
};

}  // namespace

OverflowMap CheckFreeList(FrameFile& overflow, uint32_t frameSize, const Options& options, ProblemList& problems,
                          Report& report) {
    return FreeListCheck(overflow, frameSize, options, problems, report).Run();
}

void CheckAllFramesUsed(const OverflowMap& map, const Options& options, ProblemList& problems, Report& report) {
    if (!map.listIsWhole) {
        return;
    }
    const auto leaked = [&map](uint32_t frame) { return !map.listed[frame] && !map.chained[frame]; };
    for (uint32_t frame = 1; frame < map.limit; ++frame) {
        if (!leaked(frame)) {
            continue;
        }
        const uint32_t first = frame;
        while (frame + 1 < map.limit && leaked(frame + 1)) {
            ++frame;
        }
        report.leakedFrames += frame - first + 1;
        if (!options.allowLeakedFrames) {
            problems.Add({FileKind::Overflow, first, 0}, "frames ", first, " to ", frame,
                         " are neither in a chain nor in the free list");
        }
    }
}

}  // namespace qx_check
