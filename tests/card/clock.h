/**
 * Time in this program belongs to the tests: time(), clock_gettime(), sleep() and usleep() of every piece of it
 * ask this clock. It stands still but for what moves it: a sleep, a poll of the card, the test.
 */
#ifndef KOVA_TESTS_CARD_CLOCK_H
#define KOVA_TESTS_CARD_CLOCK_H

#include <chrono>
#include <cstdint>
#include <functional>

namespace kova::test {

class Clock {
 public:
    /** Sets the time; begins at 2026-01-05 02:00:00 UTC, which is 10:00 in Shanghai. */
    static void set(std::chrono::seconds since_epoch);
    static void advance(std::chrono::nanoseconds span);
    [[nodiscard]] static std::chrono::nanoseconds now();

    /** How far each poll of a card-to-host stream moves the clock; not at all to begin with. */
    static void move_per_poll(std::chrono::nanoseconds span);

    /** What all sleeps together asked for. */
    [[nodiscard]] static std::chrono::nanoseconds slept();

    /** Called in the middle of each sleep; an empty function ends that. */
    static void during_each_sleep(std::function<void()> action);

    /** The next sleep() that is longer ends after that time, as one that a signal interrupts. */
    static void interrupt_next_sleep_after(std::chrono::seconds span);
};

/** Polls of card-to-host streams by this program. */
class Polls {
 public:
    [[nodiscard]] static std::uint64_t count();

    /** Called before each poll with its number, from 1; an empty function ends that. */
    static void before_each(std::function<void(std::uint64_t)> action);
};

}  // namespace kova::test

#endif  // KOVA_TESTS_CARD_CLOCK_H
