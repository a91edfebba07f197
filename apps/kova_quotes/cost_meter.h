/**
 * What a receive call costs, without what this program does inside it.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_COST_METER_H
#define KOVA_APPS_KOVA_QUOTES_COST_METER_H

#include <chrono>
#include <cstdint>

#include "kova_quotes/cost_histogram.h"

namespace kova::app {

/** A monotonic counter of the processor; what one tick lasts is found out afterwards. */
using TickSource = std::uint64_t (*)();

/** The time-stamp counter, read neither before earlier instructions are done nor after later ones began. */
std::uint64_t processor_ticks();

/** One kind of receive call, in nanoseconds. */
struct CallCost {
    std::uint64_t calls = 0;
    double p50 = 0;
    double p90 = 0;
    double p99 = 0;
    double p99_9 = 0;
    double max = 0;
};

/**
 * Each receive call lies between two readings of the counter; the time that the callback ran, between two more,
 * is taken off, and so is what a pair of readings itself costs (the least of many pairs taken beforehand).
 * The length of a tick is the loop's duration on the steady clock divided by its ticks.
 */
class CostMeter {
 public:
    explicit CostMeter(TickSource ticks = processor_ticks);

    /** Bracket the loop; `now` on the steady clock. */
    void begin(std::chrono::nanoseconds now);
    void end(std::chrono::nanoseconds now);

    void open_call() {
        callback_ticks_ = 0;
        pairs_in_call_ = 1;
        call_opened_ = ticks_();
    }
    void open_callback() { callback_opened_ = ticks_(); }
    void close_callback() {
        callback_ticks_ += ticks_() - callback_opened_;
        ++pairs_in_call_;
    }
    void close_call(bool with_quote) {
        const std::uint64_t whole = ticks_() - call_opened_;
        const std::uint64_t not_its_own = callback_ticks_ + pairs_in_call_ * pair_cost_;
        (with_quote ? with_quote_ : empty_).add(whole > not_its_own ? whole - not_its_own : 0);
    }

    /** After end(). */
    [[nodiscard]] CallCost with_quote() const { return cost(with_quote_); }
    [[nodiscard]] CallCost empty() const { return cost(empty_); }

    /** What was taken off for each pair of readings, in nanoseconds. */
    [[nodiscard]] double pair_cost() const { return static_cast<double>(pair_cost_) * nanoseconds_per_tick_; }

 private:
    [[nodiscard]] CallCost cost(const CostHistogram& histogram) const;

    TickSource ticks_;
    std::uint64_t pair_cost_ = 0;
    std::uint64_t call_opened_ = 0;
    std::uint64_t callback_opened_ = 0;
    std::uint64_t callback_ticks_ = 0;
    std::uint64_t pairs_in_call_ = 0;

    std::chrono::nanoseconds begun_at_{};
    std::uint64_t begun_at_tick_ = 0;
    double nanoseconds_per_tick_ = 0;

    CostHistogram with_quote_;
    CostHistogram empty_;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_COST_METER_H
