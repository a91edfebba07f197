#include "bench/latency_report.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "bench/statistics.h"
#include "bench/tsc_clock.h"

namespace kova::bench {

namespace {

// Shares of the messages that the curve is drawn through; 1 is the slowest of all.
constexpr std::array kShares = {0.0,   0.01,  0.05,  0.1,   0.2,    0.3,    0.4,    0.5,     0.6,  0.7,
                                0.75,  0.8,   0.85,  0.9,   0.93,   0.95,   0.97,   0.98,    0.99, 0.993,
                                0.995, 0.997, 0.998, 0.999, 0.9995, 0.9998, 0.9999, 0.99995, 1.0};
constexpr std::array kShown = {0.5, 0.9, 0.99, 0.999, 1.0};

void print_spread(std::FILE* out, const std::vector<double>& values, int digits) {
    const Spread shown = spread(values);
    char text[64];
    std::snprintf(text, sizeof text, "%.*f [%.*f %.*f]", digits, shown.median, digits, shown.lowest, digits,
                  shown.highest);
    std::fprintf(out, "  %20s", text);
}

}  // namespace

void TransportResult::add_latencies(std::span<std::uint64_t> ticks) {
    std::sort(ticks.begin(), ticks.end());
    latency_ns.resize(kShares.size());
    for (std::size_t i = 0; i < kShares.size(); ++i) {
        const auto value = percentile(std::span<const std::uint64_t>(ticks), kShares[i]);
        latency_ns[i].push_back(static_cast<double>(value) * ns_per_tick());
    }
}

const std::vector<double>& TransportResult::at(double share) const {
    const auto found = std::find(kShares.begin(), kShares.end(), share);
    return latency_ns.at(static_cast<std::size_t>(found - kShares.begin()));
}

void print_table(std::FILE* out, std::span<const TransportResult> results) {
    std::fprintf(out, "%-34s  %20s  %20s  %20s  %20s  %20s  %20s\n", "", "p50 ns", "p90 ns", "p99 ns",
                 "p99.9 ns", "max ns", "flood M/s");
    for (const TransportResult& result : results) {
        std::fprintf(out, "%-34s", result.name.c_str());
        for (const double share : kShown) {
            print_spread(out, result.at(share), 0);
        }
        print_spread(out, result.flood, 1);
        std::fprintf(out, "\n");
    }
}

void print_curves(std::FILE* out, std::span<const TransportResult> results) {
    for (const TransportResult& result : results) {
        std::fprintf(out, "share one_in \"%s\"\n", result.name.c_str());
        for (const double share : kShares) {
            // The slowest of all has no share above it: it stands where the next decade would.
            const double one_in = share < 1 ? 1 / (1 - share) : 100'000;
            std::fprintf(out, "%g %g %.1f\n", share, one_in, median(result.at(share)));
        }
        std::fprintf(out, "\n\n");
    }
}

double ratio(const std::vector<double>& numerators, const std::vector<double>& denominators) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < numerators.size(); ++i) {
        ratios.push_back(numerators[i] / denominators[i]);
    }
    return median(ratios);
}

}  // namespace kova::bench
