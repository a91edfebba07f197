#include "kova_quotes/silence_watch.h"

#include <gtest/gtest.h>

#include "kova_quotes/rate_meter.h"

namespace kova::app {
namespace {

using namespace std::chrono_literals;

TEST(SilenceWatch, SpeaksAfterFiveSecondsWithoutAQuote) {
    SilenceWatch watch(100s);
    EXPECT_EQ(watch.check(104s + 999ms, 0, 0), std::nullopt);
    EXPECT_EQ(watch.check(105s, 0, 0), "no quote for 5 s");
}

TEST(SilenceWatch, SpeaksAgainWhenTheSilenceHasDoubledAndAtLeastEachMinute) {
    SilenceWatch watch(0s);
    std::vector<int> spoken;
    for (int second = 1; second <= 240; ++second) {
        if (watch.check(std::chrono::seconds(second), 0, 0)) {
            spoken.push_back(second);
        }
    }
    EXPECT_EQ(spoken, (std::vector<int>{5, 10, 20, 40, 80, 140, 200}));
}

TEST(SilenceWatch, AQuoteBeforeTheFirstWordStartsTheTimeAfresh) {
    SilenceWatch watch(0s);
    EXPECT_EQ(watch.check(4s, 1, 1), std::nullopt);
    EXPECT_EQ(watch.check(8s, 1, 1), std::nullopt);
    EXPECT_EQ(watch.check(9s, 1, 1), "no quote for 5 s");
}

TEST(SilenceWatch, TellsTheEndOfASilenceItHasTold) {
    SilenceWatch watch(0s);
    watch.check(5s, 0, 0);
    EXPECT_EQ(watch.check(7s, 1, 1), "quotes again after 7 s");
    EXPECT_EQ(watch.check(8s, 2, 2), std::nullopt);
    EXPECT_EQ(watch.check(13s, 2, 2), "no quote for 5 s");
}

TEST(SilenceWatch, TellsThatOnlyTheChosenInstrumentsAreSilent) {
    SilenceWatch watch(0s);
    watch.check(1s, 10, 1);
    EXPECT_EQ(watch.check(6s, 17, 1), "no quote of the chosen instruments for 5 s (7 of others)");
}

TEST(RateMeter, KeepsTheBusiestSecond) {
    RateMeter meter(10s);
    meter.check(10s + 900ms, 500);
    EXPECT_DOUBLE_EQ(meter.best(), 0);
    meter.check(11s, 600);
    EXPECT_DOUBLE_EQ(meter.best(), 600);
    meter.check(12s, 700);
    EXPECT_DOUBLE_EQ(meter.best(), 600);
    meter.check(14s, 2300);
    EXPECT_DOUBLE_EQ(meter.best(), 800);
}

}  // namespace
}  // namespace kova::app
