/**
 * A day of the test's own, by whose time the interposed clock goes.
 */
#ifndef KOVA_TESTS_CARD_CLOCKED_DAY_H
#define KOVA_TESTS_CARD_CLOCKED_DAY_H

#include <chrono>

#include "card/clock.h"
#include "support/own_day.h"

namespace kova::test {

/** Begins at ten o'clock in Shanghai. */
class ClockedDay : public OwnDay {
 public:
    ClockedDay() { set_time(10, 0); }

    /** Sets the clock, in local time of Shanghai. */
    void set_time(int hour, int minute) const {
        Clock::set(at(std::chrono::hours(hour) + std::chrono::minutes(minute)).time_since_epoch());
    }
};

}  // namespace kova::test

#endif  // KOVA_TESTS_CARD_CLOCKED_DAY_H
