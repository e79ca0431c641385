#include "storage/free_list.h"

#include <algorithm>
#include <functional>
#include <vector>

#include "storage/operation_context.h"

namespace qx {

FreeList::FreeList(OperationContext& context, uint8_t* buffer)
    : context_(context), buffer_(buffer), geometry_(context.File.FrameSize), list_(buffer) {}

void FreeList::FailOrder() {
    Raise(Code::BadFrameHeader, Number(WhichFile::Overflow), context_.Input.Group + 1);
}

void FreeList::Lock() {
    context_.AttachOverflow(OverflowAttachment::Missing::Create);
    if (!context_.AllocationLock.IsHeld()) {  // it stays held when loading fails
        context_.AllocationLock.Lock(kOverflowAllocation, true);
    }
}

void FreeList::Load() {
    if (loaded_) {
        if (torn_) {
            FailOrder();
        }
        return;
    }
    Lock();
    torn_ = false;
    dirty_ = false;
    resized_ = false;
    trimmed_ = false;
    unsorted_ = 0;
    if (ReadFrame(context_, WhichFile::Overflow, 0, context_.File.FrameSize, ShortRead::Allow, buffer_)) {
        CheckFrameZero();
    } else {
        StartEmpty();
    }
    loaded_ = true;
    loadedEnd_ = HighWater();
    loadedFree_ = list_.Count() - 1;
}

// A read that comes back short may also have failed to read a frame that is there. Taking that for an empty list would
// give away frames that groups use.
void FreeList::StartEmpty() {
    if (context_.OverflowFrames() > 0) {
        context_.Levels.CountWork(Counter::ReadErrors);
        Raise(Code::ReadFailed, Number(WhichFile::Overflow), context_.Input.Group + 1);
    }
    list_.MakeEmpty(context_.File.FrameSize, context_.FillCharacter());
}

// A list that claims more frames than the file has must not make the file grow to fit. Only free frames at its end may
// be missing, as after a failure of a writer that cuts the file back first.
void FreeList::CheckEnd() {
    if (loadedEnd_ > 1 + loadedFree_ && !context_.OverflowHolds(loadedEnd_ - loadedFree_)) {
        FailOrder();
    }
}

// Every entry is below the first, so a list in order names no frame beyond the end that it claims. The claim itself is
// tested when it is used.
void FreeList::CheckFrameZero() {
    if (list_.Count() > geometry_.Fit || !list_.IsDescending() || HighWater() == 0xFFFFFFFF) {
        FailOrder();
    }
}

// Entry 0 of frame 0 is larger than every free number and stops every scan. A number that is there already would hand
// one frame out twice.
void FreeList::SortNewEntries() {
    constexpr uint32_t kFew = 16;
    if (unsorted_ <= kFew) {
        InsertNewEntries();
    } else {
        MergeNewEntries();
    }
    unsorted_ = 0;
}

void FreeList::InsertNewEntries() {
    const uint32_t count = list_.Count();
    for (uint32_t i = count - unsorted_; i < count; ++i) {
        const uint32_t entry = list_.Entry(i);
        uint32_t at = i;
        while (at > 0 && list_.Entry(at - 1) < entry) {
            --at;
        }
        if (at == 0 || list_.Entry(at - 1) == entry) {
            FailOrder();
        }
        list_.MoveEntries(at, at + 1, i - at);
        list_.SetEntry(at, entry);
    }
}

// For the halves of lists that move along the chain, most of all.
void FreeList::MergeNewEntries() {
    const uint32_t count = list_.Count();
    std::vector<uint32_t> entries(count);
    for (uint32_t i = 0; i < count; ++i) {
        entries[i] = list_.Entry(i);
    }
    const auto fresh = entries.end() - unsorted_;
    std::sort(fresh, entries.end(), std::greater<>());
    std::inplace_merge(entries.begin(), fresh, entries.end(), std::greater<>());
    if (entries[0] != list_.Entry(0) || std::adjacent_find(entries.begin(), entries.end()) != entries.end()) {
        FailOrder();
    }
    for (uint32_t i = 0; i < count; ++i) {
        list_.SetEntry(i, entries[i]);
    }
}

uint32_t FreeList::Allocate(uint32_t near) {
    Load();
    dirty_ = true;
    SortNewEntries();
    if (list_.Next() != 0 && list_.Count() <= geometry_.Quarter) {
        Refill();
    }
    uint32_t count = list_.Count();
    uint32_t chosen = count - 1;
    while (chosen > 0 && list_.Entry(chosen) <= near) {
        --chosen;
    }
    if (chosen + 1 < count && near - list_.Entry(chosen + 1) < list_.Entry(chosen) - near) {
        ++chosen;
    }
    const uint32_t frame = list_.Entry(chosen);
    if (chosen == 0) {
        if (frame == 1) {
            // The file's first overflow frame: if it were written and this list never was, frame 0 would be a hole.
            WriteListFrame(0);
        }
        CheckEnd();
        list_.SetEntry(0, frame + 1);
        resized_ = true;
    } else {
        if (!context_.OverflowHolds(uint64_t{frame} + 1)) {
            CheckEnd();
        }
        list_.MoveEntries(chosen + 1, chosen, count - chosen - 1);
        list_.SetEntry(count - 1, 0);
        list_.SetCount(count - 1);
    }
    return frame;
}

void FreeList::Free(uint32_t frame) {
    Load();
    if (list_.Count() >= geometry_.Capacity) {
        Spill();
    }
    dirty_ = true;
    list_.SetEntry(list_.Count(), frame);
    list_.SetCount(list_.Count() + 1);
    ++unsorted_;
}

// A chained list frame, of which only the part in use is read.
void FreeList::ReadListFrame(uint32_t frame) {
    ReadFrame(context_, WhichFile::Overflow, frame, geometry_.HalfBytes, ShortRead::Fail, buffer_);
    if (list_.Count() != geometry_.Half || !list_.IsDescending() || list_.Entry(0) != frame) {
        FailOrder();
    }
}

void FreeList::WriteListFrame(uint32_t frame) {
    WriteFrame(context_, WhichFile::Overflow, frame, context_.File.FrameSize, buffer_);
}

// Writes the chained list frame in the buffer, in the place of `replaced`, and after that the link that leads to it.
void FreeList::WriteChained(ListEnd& before, uint32_t replaced) {
    const uint32_t frame = list_.Entry(0);
    WriteListFrame(frame);
    if (frame != replaced) {
        uint8_t bytes[kListHead] = {kOverflowHeaderLength};
        FreeListFrame head(bytes);
        head.SetCount(before.Count);
        head.SetNext(frame);
        WriteFrame(context_, WhichFile::Overflow, before.Frame, kListHead, bytes);
    }
    before = {frame, geometry_.Half};
}

// Moves the smaller half of frame 0's entries into the chain. Along the chain the numbers descend, so the moved block
// is merged into one list frame after the other, each of which keeps the larger half and passes the smaller one on. A
// failure on the way leaves a list that lacks the numbers being passed on and is good otherwise.
void FreeList::Spill() {
    const uint32_t half = geometry_.Half;
    torn_ = true;
    SortNewEntries();
    const uint32_t left = list_.Count() - half;
    list_.SetCount(left);
    WriteListFrame(0);
    list_.MoveEntries(left, half, half);
    ListEnd before{0, left};
    uint32_t link = list_.Next();
    for (uint32_t steps = 1; link != 0; ++steps) {
        if (!context_.OverflowHolds(steps)) {
            FailOrder();
        }
        ReadListFrame(link);
        if (list_.Entry(half) > list_.Entry(0)) {
            list_.SwapEntries(0, half);
        }
        list_.SetCount(2 * half);
        unsorted_ = half;
        SortNewEntries();
        list_.SetCount(half);
        WriteChained(before, link);
        link = list_.Next();
    }
    list_.MoveEntries(half, 0, half);
    list_.SetCount(half);
    WriteChained(before, 0);
    ReadFrame(context_, WhichFile::Overflow, 0, context_.File.FrameSize, ShortRead::Fail, buffer_);
    torn_ = false;
}

// Pulls the first chained list frame back; it becomes an ordinary free frame itself.
void FreeList::Refill() {
    const uint32_t half = geometry_.Half;
    const uint32_t count = list_.Count();
    torn_ = true;
    list_.MoveEntries(0, half, count);
    ReadListFrame(list_.Next());
    list_.SetCount(half + count);
    list_.SwapEntries(0, half);
    unsorted_ = count;
    SortNewEntries();
    torn_ = false;
}

// Takes the free frames at the end of the file off the list.
void FreeList::Trim() {
    const uint32_t count = list_.Count();
    uint32_t run = 0;
    while (run + 1 < count && list_.Entry(run + 1) == list_.Entry(run) - 1) {
        ++run;
    }
    if (run == 0) {
        return;
    }
    const uint32_t highWater = HighWater() - run;
    if (!context_.OverflowHolds(highWater)) {
        FailOrder();  // the file would grow
    }
    list_.MoveEntries(run + 1, 1, count - run - 1);
    list_.SetEntry(0, highWater);
    list_.SetCount(count - run);
    trimmed_ = true;
}

void FreeList::WriteBack() {
    SortNewEntries();
    Trim();
    while (list_.Next() != 0 && list_.Next() == HighWater() - 1) {
        if (list_.Count() > geometry_.Half) {
            Spill();
        }
        Refill();
        Trim();
    }
    // The file is cut back last: a failure in between then leaves frames too many and not a list of frames that are
    // gone.
    if (list_.Count() == 1 && HighWater() == 1) {
        SetFileFrames(context_, WhichFile::Overflow, 0);
        resized_ = true;
    } else {
        WriteListFrame(0);
        context_.Output.CallRecordSafe();
        if (trimmed_) {
            SetFileFrames(context_, WhichFile::Overflow, HighWater());
            resized_ = true;
        }
    }
    if (resized_ && context_.Settings().FlushFileSizeUpdates) {
        FlushIfModified(context_, WhichFile::Overflow);
    }
}

void FreeList::Commit() {
    if (torn_) {
        return;
    }
    if (loaded_) {
        loaded_ = false;
        if (dirty_) {
            WriteBack();
        }
    }
    context_.AllocationLock.Release();
}

}  // namespace qx
