// How full an open file is: its load in bytes and its number of records, as stored in the header and as changed by this
// process since, and the exact re-count made by a walk over all groups in order.
#pragma once

#include <cstdint>
#include <optional>

#include "runtime/spin_lock.h"
#include "storage/layout/file_header.h"

namespace qx {

class RunningCounts {
  public:
    struct Values {
        uint64_t Alpha;
        uint32_t RecordCount;
    };

    // Starts from a header that has just been loaded; the re-count starts anew.
    void Load(const FileHeader& header);

    // Takes over what a header on disk says and keeps this process's unstored changes on top of it.
    void TakeStored(const FileHeader& header);

    // The running values that a header about to be written must carry, and, once it is on disk, that it carries them.
    Values Running();
    void MarkStored(const Values& written, uint32_t headerLength);

    // Both to the values of a file that has just been emptied.
    void Reset(uint64_t alpha);
    void ResetRecordCount();

    // Whether running and stored values differ at all, or by more than the header may lag: two frames of bytes or 20
    // records.
    bool DifferFromStored(uint32_t headerLength);
    bool HaveDrifted(uint32_t headerLength, uint32_t frameSize);

    // A record came (+1) or went (-1) in `group`.
    void AddRecord(uint32_t group, int32_t change);
    // The bytes that `group` counts, each value already capped at a frame, went from `before` to `after`.
    void ChangeAlpha(uint32_t group, uint64_t before, uint64_t after);

    // The re-count, at the end-of-group mark of `group`: counted if it is the next one in order. When every group has
    // been counted the result replaces the running values.
    void Tally(uint32_t group, uint32_t modulo, uint64_t groupBytes, uint32_t records);
    // Starts an unfinished re-count anew.
    void RestartTally(uint32_t modulo);

    // The number of groups changes from `before` to `after`: a finished re-count stays finished.
    void FollowModulo(uint32_t before, uint32_t after);

    // Everything there is; what stands under one lock was read at one moment.
    struct Observation {
        uint64_t Alpha;
        uint64_t NewAlpha;
        uint32_t RecordCount;
        uint32_t NewRecordCount;
        uint32_t ModuloVerified;
        uint64_t AlphaVerified;
        uint32_t RecordCountVerified;
    };
    Observation Observe();

    uint32_t ModuloVerified();
    uint64_t NewAlpha();
    uint32_t NewRecordCount();

  private:
    SpinLock alphaLock_;
    uint64_t alpha_ = 0;
    uint64_t newAlpha_ = 0;

    SpinLock recordCountLock_;
    uint32_t recordCount_ = 0;
    uint32_t newRecordCount_ = 0;

    SpinLock verificationLock_;  // held while one of the others is taken, never the other way round
    uint32_t moduloVerified_ = 0;
    uint64_t alphaVerified_ = 0;
    uint32_t recordCountVerified_ = 0;
};

}  // namespace qx
