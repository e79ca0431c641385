#include "chain_bars.h"

namespace qx::tool {

std::vector<ChainBar> ChainBars(const GroupTotals& totals) {
    constexpr std::uint64_t kLeast[] = {1, 2, 3, 5, 9, 17, 65};
    std::vector<ChainBar> bars;
    for (auto least = std::begin(kLeast); least != std::end(kLeast); ++least) {
        const bool open = least + 1 == std::end(kLeast);
        const std::uint64_t most = open ? UINT64_MAX : least[1] - 1;
        std::uint64_t groups = 0;
        for (auto chain = totals.Chains.lower_bound(*least); chain != totals.Chains.end() && chain->first <= most;
             ++chain) {
            groups += chain->second;
        }
        if (groups > 0) {
            const std::string upTo = open ? " and more" : *least == most ? "" : " to " + std::to_string(most);
            bars.push_back({std::to_string(*least) + upTo + (most == 1 ? " frame" : " frames"), groups});
        }
    }
    return bars;
}

}  // namespace qx::tool
