#include "sim/exchange/pacer.h"

#include <gtest/gtest.h>

namespace kova::sim {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kMillisecond = 1'000'000;

TEST(Pacer, GivesTheFirstQuoteAtOnceAndTheNextAfterItsTime) {
    Pacer pacer(1);
    EXPECT_EQ(pacer.due(5 * kSecond), 1U);
    EXPECT_EQ(pacer.due(5 * kSecond), 0U);
    EXPECT_EQ(pacer.next_ns(), 6 * kSecond);
    EXPECT_EQ(pacer.due(6 * kSecond - 1), 0U);
    EXPECT_EQ(pacer.due(6 * kSecond), 1U);
    EXPECT_EQ(pacer.due(6 * kSecond), 0U);
}

TEST(Pacer, KeepsTheRateWhateverTheStepsOfTheClock) {
    Pacer pacer(1000, 1000);
    std::uint64_t given = 0;
    for (std::int64_t now = 0; now < 10 * kSecond; now += 333'337) {
        given += pacer.due(now);
    }
    EXPECT_EQ(given, 10'000U);
}

TEST(Pacer, RatesThatDoNotDivideASecondLoseNothing) {
    Pacer pacer(3, 10);
    EXPECT_EQ(pacer.due(0), 1U);
    EXPECT_EQ(pacer.next_ns(), 333'333'334);
    EXPECT_EQ(pacer.due(333'333'333), 0U);
    EXPECT_EQ(pacer.due(333'333'334), 1U);
    EXPECT_EQ(pacer.next_ns(), 666'666'667);
    EXPECT_EQ(pacer.due(kSecond), 2U);
    EXPECT_EQ(pacer.due(2 * kSecond), 3U);
}

TEST(Pacer, GivesAtMostABurstAndForgivesTheRest) {
    Pacer pacer(1000, 50);
    EXPECT_EQ(pacer.due(0), 1U);
    EXPECT_EQ(pacer.due(kSecond), 50U);
    EXPECT_EQ(pacer.due(kSecond), 0U);
    EXPECT_EQ(pacer.next_ns(), kSecond + kMillisecond);
    EXPECT_EQ(pacer.due(kSecond + kMillisecond), 1U);
}

TEST(Pacer, UnlimitedGivesABurstEachTime) {
    Pacer pacer(std::nullopt, 64);
    EXPECT_EQ(pacer.due(7), 64U);
    EXPECT_EQ(pacer.due(7), 64U);
    EXPECT_EQ(pacer.next_ns(), 7);
}

TEST(Pacer, AClockThatGoesBackGivesNothing) {
    Pacer pacer(1000);
    EXPECT_EQ(pacer.due(kSecond), 1U);
    EXPECT_EQ(pacer.due(0), 0U);
    EXPECT_EQ(pacer.due(kSecond + 2 * kMillisecond), 2U);
}

TEST(Pacer, TheHighestRateRunsForYears) {
    Pacer pacer(kMaxRate, 1);
    EXPECT_EQ(pacer.due(0), 1U);
    const std::int64_t years = 10LL * 365 * 24 * 3600 * kSecond;
    EXPECT_EQ(pacer.due(years), 1U);
    EXPECT_EQ(pacer.next_ns(), years + 1);
}

TEST(Pacer, ABurstOfNoneIsABurstOfOne) {
    Pacer pacer(std::nullopt, 0);
    EXPECT_EQ(pacer.due(0), 1U);
}

}  // namespace
}  // namespace kova::sim
