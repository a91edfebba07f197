/**
 * The processor's time-stamp counter as a clock. It costs a few nanoseconds, runs at one rate whatever the
 * cores do, and says the same on every core of a machine of today; `clock_skew.h` checks the latter.
 */
#ifndef KOVA_BENCH_TSC_CLOCK_H
#define KOVA_BENCH_TSC_CLOCK_H

#include <x86intrin.h>

#include <chrono>
#include <cstdint>

namespace kova::bench {

/** Time of now, in ticks. May be taken early: the processor does not wait for what stands before it. */
[[nodiscard]] inline std::uint64_t ticks() {
    return __rdtsc();
}

/** Time in ticks once everything before has been executed, loads included. */
[[nodiscard]] inline std::uint64_t ticks_behind() {
    unsigned core = 0;
    return __rdtscp(&core);
}

/** Nanoseconds of a tick, measured once for about 50 milliseconds. */
[[nodiscard]] inline double ns_per_tick() {
    static const double measured = [] {
        using Clock = std::chrono::steady_clock;
        const auto begin = Clock::now();
        const std::uint64_t begin_ticks = ticks_behind();
        auto end = begin;
        while (end - begin < std::chrono::milliseconds(50)) {
            end = Clock::now();
        }
        const std::uint64_t end_ticks = ticks_behind();
        const double nanoseconds = std::chrono::duration<double, std::nano>(end - begin).count();
        return nanoseconds / static_cast<double>(end_ticks - begin_ticks);
    }();
    return measured;
}

}  // namespace kova::bench

#endif  // KOVA_BENCH_TSC_CLOCK_H
