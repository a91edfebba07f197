/**
 * The busiest second of a stream.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_RATE_METER_H
#define KOVA_APPS_KOVA_QUOTES_RATE_METER_H

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace kova::app {

/** Seconds one after the other, each measured to the first look after its end. */
class RateMeter {
 public:
    explicit RateMeter(std::chrono::nanoseconds now) : second_began_(now) {}

    /** To be called often; `count` never falls. */
    void check(std::chrono::nanoseconds now, std::uint64_t count) {
        const std::chrono::duration<double> elapsed = now - second_began_;
        if (elapsed.count() < 1) {
            return;
        }
        best_ = std::max(best_, static_cast<double>(count - count_then_) / elapsed.count());
        second_began_ = now;
        count_then_ = count;
    }

    /** A second's count; 0 before the first whole second. */
    [[nodiscard]] double best() const { return best_; }

 private:
    std::chrono::nanoseconds second_began_;
    std::uint64_t count_then_ = 0;
    double best_ = 0;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_RATE_METER_H
