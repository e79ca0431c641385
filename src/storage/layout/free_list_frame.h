// A frame of the free-frame list: frame 0 of the overflow file, and the frames chained from it.
//
//   offset  width
//        0      1  14, as in every overflow frame
//        1      2  entries in use
//        3      4  next list frame, 0 for none
//        7   4 each  entries, descending
//
// In frame 0, entry 0 is the number of frames that the overflow file holds and the others are free frames. A chained
// list frame is itself free: its entry 0 is its own number.
#pragma once

#include <cstdint>
#include <cstring>

#include "storage/layout/frame_header.h"
#include "storage/layout/little_endian.h"

namespace qx {

inline constexpr uint32_t kListHead = 7;  // bytes before the entries

// How many entries list frames of a file hold. Lists are moved about in halves, so an odd capacity is rounded down;
// more than 65,534 could not be counted.
struct ListGeometry {
    explicit constexpr ListGeometry(uint32_t frameSize) {
        Fit = (frameSize - kListHead) / 4;
        Capacity = (Fit > kMost ? kMost : Fit) / 2 * 2;
        Half = Capacity / 2;
        Quarter = Half / 2;
        HalfBytes = 4 * Half + kListHead;
    }

    static constexpr uint32_t kMost = 65534;

    uint32_t Fit;  // for which there is room
    uint32_t Capacity;
    uint32_t Half;
    uint32_t Quarter;
    uint32_t HalfBytes;  // a list frame up to its Half-th entry
};

// A view of a list frame's bytes.
class FreeListFrame {
  public:
    explicit FreeListFrame(uint8_t* bytes) : bytes_(bytes) {}

    uint32_t Count() const { return LoadLittleEndian<uint16_t>(bytes_ + 1); }
    void SetCount(uint32_t count) { StoreLittleEndian(bytes_ + 1, static_cast<uint16_t>(count)); }

    uint32_t Next() const { return LoadLittleEndian<uint32_t>(bytes_ + 3); }
    void SetNext(uint32_t frame) { StoreLittleEndian(bytes_ + 3, frame); }

    uint32_t Entry(uint32_t index) const { return LoadLittleEndian<uint32_t>(bytes_ + kListHead + 4 * size_t{index}); }
    void SetEntry(uint32_t index, uint32_t frame) { StoreLittleEndian(bytes_ + kListHead + 4 * size_t{index}, frame); }

    void MoveEntries(uint32_t from, uint32_t to, uint32_t count) {
        std::memmove(bytes_ + kListHead + 4 * size_t{to}, bytes_ + kListHead + 4 * size_t{from}, 4 * size_t{count});
    }

    void SwapEntries(uint32_t a, uint32_t b) {
        const uint32_t entry = Entry(a);
        SetEntry(a, Entry(b));
        SetEntry(b, entry);
    }

    // Whether the entries are as they must be on disk: every one larger than the next, the smallest above 0.
    bool IsDescending() const {
        for (uint32_t i = 1; i < Count(); ++i) {
            if (Entry(i) >= Entry(i - 1)) {
                return false;
            }
        }
        return Count() > 0 && Entry(Count() - 1) > 0;
    }

    // The list of a file without overflow frames; also the meaning of an overflow file of length 0.
    void MakeEmpty(uint32_t frameSize, uint8_t fill) {
        bytes_[0] = kOverflowHeaderLength;
        SetCount(1);
        SetNext(0);
        SetEntry(0, 1);
        std::memset(bytes_ + 11, fill, frameSize - 11);
    }

  private:
    uint8_t* bytes_;
};

}  // namespace qx
