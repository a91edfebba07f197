/** Medians, spreads and percentiles of measured values. */
#ifndef KOVA_BENCH_STATISTICS_H
#define KOVA_BENCH_STATISTICS_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>
#include <vector>

namespace kova::bench {

/** Middle of the values, the mean of the middle two when their number is even. At least one value. */
[[nodiscard]] inline double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    if (values.size() % 2 == 1) {
        return *middle;
    }
    return (*middle + *std::max_element(values.begin(), middle)) / 2;
}

/** What several repeats of one measurement gave. */
struct Spread {
    double median = 0;
    double lowest = 0;
    double highest = 0;
};

[[nodiscard]] inline Spread spread(const std::vector<double>& values) {
    const auto [lowest, highest] = std::minmax_element(values.begin(), values.end());
    return {.median = median(values), .lowest = *lowest, .highest = *highest};
}

/** Smallest value that at least this share (0 to 1) of the values does not exceed. Sorted, at least one. */
template <typename Value>
[[nodiscard]] Value percentile(std::span<const Value> sorted, double share) {
    const double rank = std::ceil(share * static_cast<double>(sorted.size()));
    const auto position = static_cast<std::size_t>(std::max(rank, 1.0)) - 1;
    return sorted[std::min(position, sorted.size() - 1)];
}

}  // namespace kova::bench

#endif  // KOVA_BENCH_STATISTICS_H
