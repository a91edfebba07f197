/**
 * What a test and the programs that it starts share of their clock.
 */
#ifndef KOVA_TESTS_SUPPORT_FAST_CLOCK_MEMORY_H
#define KOVA_TESTS_SUPPORT_FAST_CLOCK_MEMORY_H

#include <atomic>
#include <cstdint>

namespace kova::test {

/** Environment variable that names the file whose first bytes are a FastClockMemory. */
inline constexpr const char* kFastClockVariable = "KOVA_FAST_CLOCK";

/** Nanoseconds on top of the machine's clocks. */
struct FastClockMemory {
    std::atomic<std::int64_t> wall;   // of the time of day only; set once
    std::atomic<std::int64_t> moved;  // of every clock; grows
};

}  // namespace kova::test

#endif  // KOVA_TESTS_SUPPORT_FAST_CLOCK_MEMORY_H
