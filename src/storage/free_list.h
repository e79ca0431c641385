// The free-frame list: which overflow frames are free.
#pragma once

#include <cstdint>

#include "storage/layout/free_list_frame.h"

namespace qx {

class OperationContext;

// A call's work on the list. It is loaded when first needed and held exclusively, in all processes, from then (or from
// when it was locked before) until the commit; what was not committed leaves the list on disk as it was. Raises what
// attaching the overflow file, locking, reading and writing frames raise, and 1003 when the list is out of order.
class FreeList {
  public:
    FreeList(OperationContext& context, uint8_t* buffer);
    FreeList(const FreeList&) = delete;
    FreeList& operator=(const FreeList&) = delete;

    // For who may come to need the list when it is too late to be refused it. Makes the overflow file if it is missing.
    void Lock();

    // Makes the overflow file if it is missing.
    void Load();

    // The free frame closest to `near`, or a new one at the end of the file; of two at the same distance the upper one.
    // With 0 the lowest.
    uint32_t Allocate(uint32_t near);

    // Nothing is written into the frame.
    void Free(uint32_t frame);

    // Writes the list back if it changed, gives free frames at the end of the file back to the system, and unlocks.
    // Once the list is on disk the record being written is safe, whatever fails after that.
    void Commit();

    // The number of frames that the overflow file holds, list frame 0 included; the list is loaded.
    uint32_t HighWater() const { return list_.Entry(0); }
    // The list is loaded.
    const FreeListFrame& Frame() const { return list_; }

  private:
    // A list frame that the chain has been written up to.
    struct ListEnd {
        uint32_t Frame;
        uint32_t Count;
    };

    void SortNewEntries();
    void InsertNewEntries();
    void MergeNewEntries();
    void WriteChained(ListEnd& before, uint32_t replaced);
    void Spill();
    void Refill();
    void Trim();
    void ReadListFrame(uint32_t frame);
    void WriteListFrame(uint32_t frame);
    void WriteBack();
    void StartEmpty();
    void CheckFrameZero();
    void CheckEnd();
    [[noreturn]] void FailOrder();

    OperationContext& context_;
    uint8_t* const buffer_;
    const ListGeometry geometry_;
    FreeListFrame list_;
    bool loaded_ = false;
    bool torn_ = false;  // the buffer is not frame 0: moving entries along the chain has failed half way
    bool dirty_ = false;
    bool resized_ = false;    // the file's length changes
    bool trimmed_ = false;    // it is to be cut back to HighWater
    uint32_t unsorted_ = 0;   // entries appended since the last sort
    uint32_t loadedEnd_ = 0;  // HighWater and the number of free frames in frame 0 when the list was loaded
    uint32_t loadedFree_ = 0;
};

}  // namespace qx
