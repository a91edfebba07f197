#include "sim/exchange/pacer.h"

#include <algorithm>

namespace kova::sim {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

/** Quotes due within so many nanoseconds; whole seconds apart, so that nothing overflows. */
std::uint64_t due_within(std::int64_t elapsed_ns, std::uint64_t rate) {
    const auto seconds = static_cast<std::uint64_t>(elapsed_ns / kNanosecondsPerSecond);
    const auto rest = static_cast<std::uint64_t>(elapsed_ns % kNanosecondsPerSecond);
    return seconds * rate + rest * rate / kNanosecondsPerSecond;
}

/** The first nanosecond at which so many are due. */
std::int64_t time_of(std::uint64_t number, std::uint64_t rate) {
    const std::uint64_t seconds = number / rate;
    const std::uint64_t rest = number % rate;
    return static_cast<std::int64_t>(seconds * kNanosecondsPerSecond +
                                     (rest * kNanosecondsPerSecond + rate - 1) / rate);
}

}  // namespace

Pacer::Pacer(Rate rate, std::uint64_t burst) : rate_(rate), burst_(std::max<std::uint64_t>(burst, 1)) {
    if (rate_) {
        rate_ = std::clamp<std::uint64_t>(*rate_, 1, kMaxRate);
    }
}

std::uint64_t Pacer::due(std::int64_t now_ns) {
    if (!started_) {
        started_ = true;
        origin_ns_ = now_ns;
        now_ns_ = now_ns;
    }
    now_ns_ = std::max(now_ns_, now_ns);
    if (!rate_) {
        return burst_;
    }
    const std::uint64_t owed = due_within(now_ns_ - origin_ns_, *rate_) + 1 - given_;
    const std::uint64_t sent = std::min(owed, burst_);
    given_ += owed;
    return sent;
}

std::int64_t Pacer::next_ns() const {
    return rate_ ? origin_ns_ + time_of(given_, *rate_) : now_ns_;
}

}  // namespace kova::sim
