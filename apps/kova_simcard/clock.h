/** The clock that traffic runs by. */
#ifndef KOVA_APPS_KOVA_SIMCARD_CLOCK_H
#define KOVA_APPS_KOVA_SIMCARD_CLOCK_H

#include <cstdint>

namespace kova::app {

class Clock {
 public:
    virtual ~Clock() = default;
    /** Nanoseconds; never goes back. */
    virtual std::int64_t now() = 0;
    /** Waits until this clock shows `time`; returns early when a signal arrives. */
    virtual void sleep_until(std::int64_t time) = 0;
};

/** The machine's monotonic clock, with sleeps as exact as the kernel makes them. */
class MonotonicClock final : public Clock {
 public:
    MonotonicClock();
    std::int64_t now() override;
    void sleep_until(std::int64_t time) override;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_CLOCK_H
