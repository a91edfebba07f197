#include "kova_quotes/cost_meter.h"

#include <x86intrin.h>

#include <algorithm>
#include <limits>

namespace kova::app {

namespace {

std::uint64_t least_pair(TickSource ticks) {
    constexpr int kPairs = 1000;
    std::uint64_t least = std::numeric_limits<std::uint64_t>::max();
    for (int i = 0; i < kPairs; ++i) {
        const std::uint64_t first = ticks();
        least = std::min(least, ticks() - first);
    }
    return least;
}

}  // namespace

std::uint64_t processor_ticks() {
    _mm_lfence();
    const std::uint64_t ticks = __rdtsc();
    _mm_lfence();
    return ticks;
}

CostMeter::CostMeter(TickSource ticks) : ticks_(ticks), pair_cost_(least_pair(ticks)) {}

void CostMeter::begin(std::chrono::nanoseconds now) {
    begun_at_ = now;
    begun_at_tick_ = ticks_();
}

void CostMeter::end(std::chrono::nanoseconds now) {
    const std::uint64_t ticks = ticks_() - begun_at_tick_;
    nanoseconds_per_tick_ =
        ticks == 0 ? 0 : static_cast<double>((now - begun_at_).count()) / static_cast<double>(ticks);
}

CallCost CostMeter::cost(const CostHistogram& histogram) const {
    const auto in_nanoseconds = [this](std::uint64_t ticks) {
        return static_cast<double>(ticks) * nanoseconds_per_tick_;
    };
    return {.calls = histogram.count(),
            .p50 = in_nanoseconds(histogram.quantile(500)),
            .p90 = in_nanoseconds(histogram.quantile(900)),
            .p99 = in_nanoseconds(histogram.quantile(990)),
            .p99_9 = in_nanoseconds(histogram.quantile(999)),
            .max = in_nanoseconds(histogram.max())};
}

}  // namespace kova::app
