/** Whether two cores read the same time. */
#ifndef KOVA_BENCH_CLOCK_SKEW_H
#define KOVA_BENCH_CLOCK_SKEW_H

#include "bench/two_processes.h"

namespace kova::bench {

/**
 * How far the reader's clock is ahead of the writer's, in nanoseconds: half the difference of the shortest ways
 * there and back. What is left of a way after that is its own, so a skew adds itself to one-way latencies.
 */
[[nodiscard]] double clock_skew_ns(const Cores& cores);

}  // namespace kova::bench

#endif  // KOVA_BENCH_CLOCK_SKEW_H
