#include "workload.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace qx::compare {

namespace {

// Different numbers give different keys: both steps can be undone within 48 bits, which 15 digits hold.
void PutKey(uint64_t number, char* to) {
    constexpr uint64_t kMask = (uint64_t{1} << 48) - 1;
    uint64_t mixed = number + 1;
    for (const uint64_t factor : {0x9E3779B97F4BULL, 0xC2B2AE3D27D5ULL}) {
        mixed = mixed * factor & kMask;
        mixed ^= mixed >> 23;
    }
    for (uint32_t digit = kKeyBytes; digit-- > 0; mixed /= 10) {
        to[digit] = static_cast<char>('0' + mixed % 10);
    }
}

}  // namespace

RecordData::RecordData(const Load& load) : dataBytes_(load.DataBytes), bytes_(LengthOf(Revision::Replaced), '.') {}

uint32_t RecordData::LengthOf(Revision revision) const {
    return revision == Revision::Replaced ? dataBytes_ + dataBytes_ / 5 : dataBytes_;
}

std::string_view RecordData::Of(uint64_t number, Revision revision) {
    std::memcpy(bytes_.data(), &number, sizeof number);
    std::memcpy(bytes_.data() + sizeof number, &revision, sizeof revision);
    return std::string_view(bytes_).substr(0, LengthOf(revision));
}

bool RecordData::Agrees(std::string_view data, uint64_t number, Revision revision) const {
    return data.size() == LengthOf(revision) && std::memcmp(data.data(), &number, sizeof number) == 0 &&
           std::memcmp(data.data() + sizeof number, &revision, sizeof revision) == 0 && data.back() == '.';
}

// Numbers from Records on have keys that no record has.
Share::Share(const Load& load, Phase phase, uint32_t worker, uint32_t workers, uint64_t seed) {
    if (phase == Phase::Walk) {
        return;
    }
    const uint64_t first = phase == Phase::Miss ? load.Records : 0;
    numbers_.reserve(load.Records / workers + 1);
    for (uint64_t number = worker; number < load.Records; number += workers) {
        numbers_.push_back(static_cast<uint32_t>(first + number));
    }
    std::mt19937_64 random(seed + IndexOf(phase) * workers + worker);
    std::ranges::shuffle(numbers_, random);
    if (phase == Phase::Delete) {
        numbers_.resize(numbers_.size() / 2);
    }
    keys_.resize(numbers_.size() * kKeyBytes);
    for (size_t index = 0; index < numbers_.size(); ++index) {
        PutKey(numbers_[index], keys_.data() + index * kKeyBytes);
    }
}

}  // namespace qx::compare
