#include "kova_quotes/cost_meter.h"

#include <gtest/gtest.h>

#include <chrono>

namespace kova::app {
namespace {

using std::chrono::nanoseconds;

// Every reading takes three ticks, whatever happens between two of them is added by the test.
std::uint64_t counter = 0;
std::uint64_t three_ticks_a_reading() {
    return counter += 3;
}

TEST(CostMeter, ACallCostsWhatLiesBetweenItsReadingsWithoutTheReadingItself) {
    CostMeter meter(three_ticks_a_reading);
    meter.begin(nanoseconds(0));
    const std::uint64_t begun = counter;
    meter.open_call();
    counter += 40;
    meter.close_call(false);
    counter = begun + 1000 - 3;
    meter.end(nanoseconds(1000));
    EXPECT_EQ(meter.empty().calls, 1U);
    EXPECT_DOUBLE_EQ(meter.empty().p50, 40);
    EXPECT_DOUBLE_EQ(meter.pair_cost(), 3);
    EXPECT_EQ(meter.with_quote().calls, 0U);
}

TEST(CostMeter, WhatTheCallbackDoesIsNotTheCallsCost) {
    CostMeter meter(three_ticks_a_reading);
    meter.begin(nanoseconds(0));
    const std::uint64_t begun = counter;
    meter.open_call();
    counter += 20;
    for (int quote = 0; quote < 2; ++quote) {
        meter.open_callback();
        counter += 5000;
        meter.close_callback();
    }
    counter += 10;
    meter.close_call(true);
    counter = begun + 20000 - 3;
    meter.end(nanoseconds(20000));
    EXPECT_EQ(meter.with_quote().calls, 1U);
    EXPECT_DOUBLE_EQ(meter.with_quote().max, 30);
}

TEST(CostMeter, TicksBecomeNanosecondsByTheLengthOfTheLoop) {
    CostMeter meter(three_ticks_a_reading);
    meter.begin(nanoseconds(500));
    const std::uint64_t begun = counter;
    meter.open_call();
    counter += 60;
    meter.close_call(false);
    counter = begun + 3000 - 3;
    meter.end(nanoseconds(1500));
    EXPECT_DOUBLE_EQ(meter.empty().max, 20);
}

TEST(CostMeter, ACallThatSeemsCheaperThanTheReadingCostsNothing) {
    CostMeter meter(three_ticks_a_reading);
    meter.begin(nanoseconds(0));
    meter.open_call();
    counter -= 2;
    meter.close_call(false);
    meter.end(nanoseconds(10));
    EXPECT_DOUBLE_EQ(meter.empty().max, 0);
}

TEST(CostMeter, TheProcessorsTicksRise) {
    const std::uint64_t first = processor_ticks();
    EXPECT_GT(processor_ticks(), first);
}

}  // namespace
}  // namespace kova::app
