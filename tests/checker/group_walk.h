// Walks one group after the other through its frames and records and checks all that the layout says about them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "byte_checker.h"
#include "frame_file.h"
#include "group_rule.h"
#include "overflow_map.h"
#include "problem_list.h"

namespace qx_check {

struct GroupTotals {
    bool whole = false;  // read up to its end-of-group mark
    uint64_t usedBytes = 0;
    uint64_t records = 0;
    uint64_t overflowFrames = 0;
};

class GroupWalk {
  public:
    GroupWalk(FrameFile& primary, FrameFile& overflow, const Header& header, OverflowMap& map, const Options& options,
              ProblemList& problems, const RecordCallback& onRecord);

    GroupTotals Walk(uint32_t group);

  private:
    // Thrown once the damage has been entered in the list: the bytes after it cannot be told apart.
    struct BrokenGroup {};

    // A frame left in the middle of a record whose data begins in it; its SkipLink depends on where that record ends.
    struct HeldFrame {
        Place place;
        uint32_t chainIndex;
        uint32_t forwardLink;
        uint32_t skipLink;
    };

    struct Key {
        Place record;
        uint32_t hash;
        size_t start;
        size_t length;
    };

    void StartPrimaryFrame();
    void NextFrame();
    bool AtEndOfGroup();
    void ReadRecord();
    void FinishGroup();
    uint32_t ReadNumber(const char* name, uint32_t* width);
    void PassBytes(uint64_t count, std::string* copy);
    void PassTerminator();
    void CheckSkipLink(const Place& place, uint32_t skipLink, uint32_t due, const char* why);
    void CheckKey(const Key& key);
    void CheckDuplicates();
    void ClaimRestOfChain();

    std::string_view Text(const Key& key) const { return std::string_view(keys_).substr(key.start, key.length); }
    Place Here() const { return At(position_); }
    Place At(uint64_t position) const { return {file_, frameNumber_, position}; }
    template <typename... Parts>
    [[noreturn]] void Break(const Place& place, const Parts&... parts) {
        problems_.Add(place, parts...);
        throw BrokenGroup();
    }

    FrameFile& primary_;
    FrameFile& overflow_;
    const Header& header_;
    OverflowMap& map_;
    const Options& options_;
    ProblemList& problems_;
    const RecordCallback& onRecord_;
    const Split split_;

    uint32_t group_ = 0;
    Split stampSplit_{};
    bool stampDiffers_ = false;
    GroupTotals totals_;

    // The frame under the cursor. The cursor moves on from a full frame only when another byte is wanted, so it may
    // stand behind the last byte.
    std::vector<uint8_t> frame_;
    FileKind file_ = FileKind::Primary;
    uint32_t frameNumber_ = 0;
    uint32_t chainIndex_ = 0;
    uint64_t position_ = 0;
    uint32_t nextLink_ = 0;  // the frame's ForwardLink; 0 also while that frame is being entered

    std::optional<uint32_t> dataStartIndex_;  // chain index of the frame where the current record's data begins
    std::optional<HeldFrame> held_;

    std::string keys_;  // of the group's records, back to back
    std::vector<Key> keyTable_;
    std::string data_;
};

}  // namespace qx_check
