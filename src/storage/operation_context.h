// The work of one call on one local file: its frame buffers, its group locks, and the cursor, stream and free list that
// it works through.
#pragma once

#include <cstdint>

#include "runtime/work_area.h"
#include "storage/attachment.h"
#include "storage/free_list.h"
#include "storage/group_lock_slot.h"
#include "storage/input_cursor.h"
#include "storage/layout/file_header.h"
#include "storage/open_file.h"
#include "storage/output_stream.h"

namespace qx {

// The file is attached while the context lives. When it ends, the locks go in the order overflow allocation, current
// group, header group; then the overflow file is detached.
class OperationContext {
  public:
    // Raises 1014, counted in `shortage`.
    OperationContext(OpenFile& file, const CounterLevels& levels,
                     Counter shortage = Counter::AllocateTemporaryDataErrors);
    OperationContext(const OperationContext&) = delete;
    OperationContext& operator=(const OperationContext&) = delete;

    static constexpr uint32_t kBufferCount = 6;

    // Frame buffers 0 to 5. The cursor starts with 0, the stream with 1 and its held frame with 2, the free list has 3;
    // 4 and 5 are for the record operations. What they hold at first is arbitrary.
    uint8_t* Buffer(uint32_t index) { return area_.Bytes() + size_t{index} * File.FrameSize; }

    void AttachOverflow(OverflowAttachment::Missing missing) { overflow_.Attach(missing); }
    bool OverflowIsAttached() const { return overflow_.IsAttached(); }

    // Frames in the overflow file, which is attached. Raises 107 when its length cannot be had.
    uint32_t OverflowFrames();

    // Whether the overflow file, which is attached, holds at least so many frames. A walk along a chain that takes more
    // frames than that runs in a circle; a record that needs more is damaged. Raises 107 when the length cannot be had.
    bool OverflowHolds(uint64_t frames);

    const VolumeSettings& Settings() const { return File.Volume.Settings; }
    uint8_t FillCharacter() const { return static_cast<uint8_t>(Settings().FillCharacter); }
    OsHandle HandleOf(WhichFile file) const { return File.Part(file).Cached.Handle; }

    // The slot in which locks on `group` are held.
    GroupLockSlot& SlotOf(uint32_t group) { return group == kHeaderGroup ? HeaderLock : GroupLock; }

    OpenFile& File;
    const CounterLevels& Levels;

  private:
    WorkArea area_;
    OverflowAttachment overflow_;

  public:
    uint8_t HeaderImage[kLongestFileHeader] = {};  // as last read or written by this call

    GroupLockSlot HeaderLock;      // group 0
    GroupLockSlot GroupLock;       // the current group
    GroupLockSlot AllocationLock;  // the free-frame list

    InputCursor Input;
    OutputStream Output;
    FreeList List;
};

}  // namespace qx
