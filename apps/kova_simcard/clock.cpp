#include "kova_simcard/clock.h"

#include <sys/prctl.h>

#include <ctime>

namespace kova::app {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

}  // namespace

// By default the kernel may wake a thread 50 microseconds late to save wake-ups.
MonotonicClock::MonotonicClock() {
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
}

std::int64_t MonotonicClock::now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * kNanosecondsPerSecond + time.tv_nsec;
}

void MonotonicClock::sleep_until(std::int64_t time) {
    const timespec until{.tv_sec = time / kNanosecondsPerSecond, .tv_nsec = time % kNanosecondsPerSecond};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

}  // namespace kova::app
