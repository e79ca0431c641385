#include "sizing.h"

#include <algorithm>
#include <cmath>

namespace qx::tool {

namespace {

// The group rule looks at this many different values of a key's hash and no more. A group gets whole ones of them.
constexpr double kHashClasses = 1 << 18;

// The variance of the groups' sizes, relative to their mean, up to which files stay below twice their records.
constexpr double kMostVariance = 1;

// What a visit counts beside the bytes of its frame.
constexpr double kBytesPerVisit = 12288;

// What groups that are not split yet add to it, on average.
constexpr double kSplitVariance = 0.02;

// Of the frames that are advised.
constexpr std::uint32_t kSmallest = 1024;
constexpr std::uint32_t kLargestOfVersion110 = 32768;
constexpr std::uint32_t kLargest = 16 << 20;  // a call keeps several in memory

// Records of a group that is filled up to the threshold.
double RecordsPerGroup(const SizingNeed& need, double frameSize) {
    return need.Threshold / 256.0 * frameSize / need.StoredBytes;
}

// Records fall into groups, and hash values do, as if thrown at random.
double Variance(const SizingNeed& need, double frameSize) {
    const double perGroup = RecordsPerGroup(need, frameSize);
    const double groups = static_cast<double>(need.Records) / perGroup;
    return 1 / perGroup + groups / kHashClasses;
}

}  // namespace

Sizing Advise(const SizingNeed& need) {
    const std::uint32_t largest = need.Version < 120 ? kLargestOfVersion110 : kLargest;
    const auto cost = [&](std::uint32_t size) { return ExpectedVisits(need, size) * (kBytesPerVisit + size); };
    std::uint32_t frameSize = kSmallest;
    while (frameSize < largest &&
           (Variance(need, frameSize) > kMostVariance || cost(2 * frameSize) < cost(frameSize))) {
        frameSize *= 2;
    }
    const double groups = std::ceil(static_cast<double>(need.Records) / RecordsPerGroup(need, frameSize));
    return {frameSize, static_cast<std::uint32_t>(std::clamp(groups, 1.0, double{UINT32_MAX})),
            ExpectedVisits(need, frameSize)};
}

// The groups' sizes are taken to follow a gamma distribution, whose density, up to a factor, is summed over the sizes.
// Of a group of x frames the records in the first frame take one visit each, those in the second two, and so on, so
// that its bytes take x + (x - 1) + (x - 2) + ... visits together.
double ExpectedVisits(const SizingNeed& need, std::uint32_t frameSize) {
    const double mean = need.Threshold / 256.0;
    const double variance = Variance(need, frameSize) + kSplitVariance;
    const double shape = 1 / variance;
    const double scale = mean * variance;
    const auto exponent = [&](double x) { return (shape - 1) * std::log(x) - x / scale; };
    const double most = mean * (1 + 10 * std::sqrt(variance) + 20 * variance);
    double bytes = 0;
    double visits = 0;
    constexpr int kSteps = 10000;
    for (int step = 0; step < kSteps; ++step) {
        const double x = most * (step + 0.5) / kSteps;  // in frames
        const double weight = std::exp(exponent(x) - exponent(mean));
        bytes += weight * x;
        const double whole = std::floor(x);
        visits += weight * (whole + 1) * (x - whole / 2);
    }
    return visits / bytes;
}

double StoredBytesOf(std::uint64_t recordBytes) {
    // The lengths of the record and of its key, seven bits a byte, and the byte that ends it.
    double bytes = static_cast<double>(recordBytes) + 3;
    for (std::uint64_t rest = (recordBytes + 1) >> 7; rest != 0; rest >>= 7) {
        ++bytes;
    }
    return bytes;
}

}  // namespace qx::tool
