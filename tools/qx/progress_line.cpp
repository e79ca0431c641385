#include "progress_line.h"

#include <cmath>
#include <utility>

#include "messages.h"
#include "number_text.h"
#include "terminal.h"

namespace qx::tool {

namespace {

constexpr std::chrono::milliseconds kInterval(200);
const std::string kFreshLine = "\r\x1B[K";  // to the beginning of the line, and nothing on it

// 75 as 1:15.
std::string MinutesAndSeconds(double seconds) {
    const long whole = std::lround(seconds);
    const long rest = whole % 60;
    return std::to_string(whole / 60) + (rest < 10 ? ":0" : ":") + std::to_string(rest);
}

// A bar of twenty signs.
std::string Bar(double part) {
    constexpr std::size_t kWidth = 20;
    const auto done = static_cast<std::size_t>(part * kWidth);
    return '[' + std::string(done, '#') + std::string(kWidth - done, '.') + "] ";
}

}  // namespace

ProgressLine::ProgressLine(bool wanted, std::string thing)
    : thing_(std::move(thing)), shown_(wanted && IsTerminal(Stream::Error)) {}

double ProgressLine::Seconds() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
}

std::string ProgressLine::Pace(std::uint64_t records) const {
    const double seconds = Seconds();
    const double rate = seconds > 0 ? static_cast<double>(records) / seconds : 0;
    return "in " + OneDecimal(seconds) + " s (" + Grouped(static_cast<std::uint64_t>(rate)) + " a second)";
}

void ProgressLine::Refresh(std::uint64_t records, std::uint64_t bytes, std::optional<std::uint64_t> total) {
    const Clock::time_point now = Clock::now();
    if (now < next_) {
        return;
    }
    next_ = now + kInterval;
    const double seconds = Seconds();
    std::string text = Counted(records, thing_);
    if (seconds > 0) {
        text += ", " + Grouped(static_cast<std::uint64_t>(static_cast<double>(records) / seconds)) + " a second";
    }
    if (total && bytes > 0 && bytes <= *total) {
        const double part = static_cast<double>(bytes) / static_cast<double>(*total);
        text = Bar(part) + text + ", " + OneDecimal(part * 100) + " %, " + MinutesAndSeconds(seconds / part - seconds) +
               " to go";
    }
    WriteError(kFreshLine + text);
    visible_ = true;
}

void ProgressLine::Clear() {
    if (visible_) {
        WriteError(kFreshLine);
        visible_ = false;
    }
}

}  // namespace qx::tool
