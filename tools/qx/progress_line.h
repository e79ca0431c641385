#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace qx::tool {

/// One line on standard error that tells how far a long job is; nothing at all when that is no terminal.
class ProgressLine {
  public:
    /// `wanted`: false where it would get into the way of what goes to the same terminal. `thing`: what it counts.
    explicit ProgressLine(bool wanted = true, std::string thing = "record");
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine() { Clear(); }

    /// To be called for every record; shows something a few times a second. `total`: bytes, where known; any other
    /// measure of the work done and to be done does as well.
    void Show(std::uint64_t records, std::uint64_t bytes, std::optional<std::uint64_t> total) {
        if (shown_ && records % kRecordsBetweenLooks == 0) {
            Refresh(records, bytes, total);
        }
    }

    /// Takes the line away.
    void Clear();

    /// "in 0.2 s (209,873 a second)", since it was made.
    std::string Pace(std::uint64_t records) const;

  private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::uint64_t kRecordsBetweenLooks = 64;

    double Seconds() const;
    void Refresh(std::uint64_t records, std::uint64_t bytes, std::optional<std::uint64_t> total);

    const std::string thing_;
    bool shown_;
    bool visible_ = false;
    Clock::time_point start_ = Clock::now();
    Clock::time_point next_ = start_;
};

}  // namespace qx::tool
