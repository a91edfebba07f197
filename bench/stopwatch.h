/** Times one section of code. */
#ifndef KOVA_BENCH_STOPWATCH_H
#define KOVA_BENCH_STOPWATCH_H

#include <time.h>

#include "bench/tsc_clock.h"

namespace kova::bench {

/** Nanoseconds that the section takes, from nothing before it being under way to all of it being done. */
template <typename Section>
[[nodiscard]] double nanoseconds_of(Section&& section) {
    _mm_lfence();
    const std::uint64_t begin = ticks();
    _mm_lfence();
    section();
    const std::uint64_t end = ticks_behind();
    _mm_lfence();
    return static_cast<double>(end - begin) * ns_per_tick();
}

/**
 * Nanoseconds of the processor that the section takes, for sections so long that a busy machine would give the
 * core to somebody else in the middle of them: not for less than some 100 microseconds.
 */
template <typename Section>
[[nodiscard]] double cpu_nanoseconds_of(Section&& section) {
    timespec begin{};
    timespec end{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &begin);
    section();
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
    return static_cast<double>(end.tv_sec - begin.tv_sec) * 1e9 +
           static_cast<double>(end.tv_nsec - begin.tv_nsec);
}

}  // namespace kova::bench

#endif  // KOVA_BENCH_STOPWATCH_H
