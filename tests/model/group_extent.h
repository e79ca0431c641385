// How a record lies in its group.
#pragma once

#include <cstddef>
#include <cstdint>

#include "model/model.h"

namespace qx_test {

// Where the bytes of a group fall into frames; positions count the group's data areas one after the other.
class GroupExtent {
  public:
    GroupExtent(const GroupRecords& records, size_t index, uint32_t headerLength, uint32_t frameSize)
        : first_(frameSize - headerLength), other_(frameSize - 14) {
        for (size_t i = 0; i < records.size(); ++i) {
            const size_t bytes = RecordBytes(records[i]);
            total_ += bytes;
            start_ += i < index ? bytes : 0;
            following_ += i > index ? bytes : 0;
        }
    }

    // Overflow frames of the group, its end-of-group mark included.
    size_t OverflowFrames() const { return FrameOf(total_); }
    size_t Following() const { return following_; }
    // Room from the record to the end of its frame.
    size_t Room() const { return first_ + FrameOf(start_) * other_ - start_; }

  private:
    size_t FrameOf(size_t position) const { return position < first_ ? 0 : 1 + (position - first_) / other_; }

    const size_t first_;
    const size_t other_;
    size_t start_ = 0;
    size_t following_ = 0;  // bytes of the records behind
    size_t total_ = 0;
};

}  // namespace qx_test
