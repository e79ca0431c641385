#include "storage/running_counts.h"

namespace qx {

namespace {

constexpr uint32_t kRecordDrift = 21;

uint64_t Changed(uint64_t value, uint64_t before, uint64_t after) {
    value += after;
    return value > before ? value - before : 0;
}

template <class Value>
Value Distance(Value a, Value b) {
    return a > b ? a - b : b - a;
}

}  // namespace

void RunningCounts::Load(const FileHeader& header) {
    {
        const SpinHold hold(alphaLock_);
        alpha_ = newAlpha_ = header.Alpha;
    }
    {
        const SpinHold hold(recordCountLock_);
        recordCount_ = newRecordCount_ = header.RecordCount;
    }
    const SpinHold hold(verificationLock_);
    moduloVerified_ = 0;
    alphaVerified_ = 0;
    recordCountVerified_ = 0;
}

void RunningCounts::TakeStored(const FileHeader& header) {
    {
        const SpinHold hold(alphaLock_);
        newAlpha_ = header.Alpha + (newAlpha_ - alpha_);
        alpha_ = header.Alpha;
    }
    const SpinHold hold(recordCountLock_);
    if (HasRecordCount(header.HeaderLength)) {
        newRecordCount_ = header.RecordCount + (newRecordCount_ - recordCount_);
    }
    recordCount_ = header.RecordCount;
}

RunningCounts::Values RunningCounts::Running() {
    return {NewAlpha(), NewRecordCount()};
}

void RunningCounts::MarkStored(const Values& written, uint32_t headerLength) {
    {
        const SpinHold hold(alphaLock_);
        alpha_ = written.Alpha;
    }
    if (HasRecordCount(headerLength)) {
        const SpinHold hold(recordCountLock_);
        recordCount_ = written.RecordCount;
    }
}

void RunningCounts::Reset(uint64_t alpha) {
    const SpinHold hold(alphaLock_);
    alpha_ = newAlpha_ = alpha;
}

void RunningCounts::ResetRecordCount() {
    const SpinHold hold(recordCountLock_);
    recordCount_ = newRecordCount_ = 0;
}

bool RunningCounts::DifferFromStored(uint32_t headerLength) {
    {
        const SpinHold hold(alphaLock_);
        if (newAlpha_ != alpha_) {
            return true;
        }
    }
    const SpinHold hold(recordCountLock_);
    return HasRecordCount(headerLength) && newRecordCount_ != recordCount_;
}

bool RunningCounts::HaveDrifted(uint32_t headerLength, uint32_t frameSize) {
    {
        const SpinHold hold(alphaLock_);
        if (Distance(newAlpha_, alpha_) > uint64_t{2} * frameSize) {
            return true;
        }
    }
    const SpinHold hold(recordCountLock_);
    return HasRecordCount(headerLength) && Distance(newRecordCount_, recordCount_) >= kRecordDrift;
}

// The re-count's result may replace the running values at any moment, so both change together.
void RunningCounts::AddRecord(uint32_t group, int32_t change) {
    const SpinHold hold(verificationLock_);
    {
        const SpinHold countHold(recordCountLock_);
        newRecordCount_ += static_cast<uint32_t>(change);
    }
    if (group < moduloVerified_) {
        recordCountVerified_ += static_cast<uint32_t>(change);
    }
}

void RunningCounts::ChangeAlpha(uint32_t group, uint64_t before, uint64_t after) {
    const SpinHold hold(verificationLock_);
    {
        const SpinHold alphaHold(alphaLock_);
        newAlpha_ = Changed(newAlpha_, before, after);
    }
    if (group < moduloVerified_) {
        alphaVerified_ = Changed(alphaVerified_, before, after);
    }
}

void RunningCounts::Tally(uint32_t group, uint32_t modulo, uint64_t groupBytes, uint32_t records) {
    const SpinHold hold(verificationLock_);
    if (group != moduloVerified_) {
        return;
    }
    ++moduloVerified_;
    alphaVerified_ += groupBytes;
    recordCountVerified_ += records;
    if (moduloVerified_ != modulo) {
        return;
    }
    {
        const SpinHold alphaHold(alphaLock_);
        newAlpha_ = alphaVerified_;
    }
    const SpinHold countHold(recordCountLock_);
    newRecordCount_ = recordCountVerified_;
}

void RunningCounts::RestartTally(uint32_t modulo) {
    const SpinHold hold(verificationLock_);
    if (moduloVerified_ != modulo) {
        moduloVerified_ = 0;
        alphaVerified_ = 0;
        recordCountVerified_ = 0;
    }
}

void RunningCounts::FollowModulo(uint32_t before, uint32_t after) {
    const SpinHold hold(verificationLock_);
    if (moduloVerified_ == before) {
        moduloVerified_ = after;
    }
}

RunningCounts::Observation RunningCounts::Observe() {
    Observation seen{};
    {
        const SpinHold hold(alphaLock_);
        seen.Alpha = alpha_;
        seen.NewAlpha = newAlpha_;
    }
    {
        const SpinHold hold(recordCountLock_);
        seen.RecordCount = recordCount_;
        seen.NewRecordCount = newRecordCount_;
    }
    const SpinHold hold(verificationLock_);
    seen.ModuloVerified = moduloVerified_;
    seen.AlphaVerified = alphaVerified_;
    seen.RecordCountVerified = recordCountVerified_;
    return seen;
}

uint32_t RunningCounts::ModuloVerified() {
    const SpinHold hold(verificationLock_);
    return moduloVerified_;
}

uint64_t RunningCounts::NewAlpha() {
    const SpinHold hold(alphaLock_);
    return newAlpha_;
}

uint32_t RunningCounts::NewRecordCount() {
    const SpinHold hold(recordCountLock_);
    return newRecordCount_;
}

}  // namespace qx
