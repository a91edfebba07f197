/** What the latency benchmark measured, and how it is shown. */
#ifndef KOVA_BENCH_LATENCY_REPORT_H
#define KOVA_BENCH_LATENCY_REPORT_H

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

#include "bench/goals.h"

namespace kova::bench {

/** One transport's results, a value for each repeat. */
struct TransportResult {
    std::string name;
    /** Latency at each of kShares, in nanoseconds: [share][repeat]. */
    std::vector<std::vector<double>> latency_ns;
    /** Million messages a second. */
    std::vector<double> flood;

    /** Takes one repeat's samples, which it sorts. */
    void add_latencies(std::span<std::uint64_t> ticks);
    /** All repeats' latencies at a share that kShares has. */
    [[nodiscard]] const std::vector<double>& at(double share) const;
};

/** What is printed for the eye: p50, p90, p99, p99.9, maximum and flood, as medians with their spread. */
void print_table(std::FILE* out, std::span<const TransportResult> results);

/** Percentile curves for gnuplot: a block for each transport. */
void print_curves(std::FILE* out, std::span<const TransportResult> results);

/**
 * Ratio of two transports, the median of the repeats' own ratios: what slows one repeat down slows both.
 */
[[nodiscard]] double ratio(const std::vector<double>& numerators, const std::vector<double>& denominators);

}  // namespace kova::bench

#endif  // KOVA_BENCH_LATENCY_REPORT_H
