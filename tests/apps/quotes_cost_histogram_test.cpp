#include "kova_quotes/cost_histogram.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace kova::app {
namespace {

TEST(CostHistogram, WithoutValuesEverythingIsZero) {
    const CostHistogram histogram;
    EXPECT_EQ(histogram.count(), 0U);
    EXPECT_EQ(histogram.quantile(500), 0U);
    EXPECT_EQ(histogram.max(), 0U);
}

TEST(CostHistogram, SmallValuesAreExact) {
    CostHistogram histogram;
    for (std::uint64_t value = 1; value <= 63; ++value) {
        histogram.add(value);
    }
    EXPECT_EQ(histogram.count(), 63U);
    EXPECT_EQ(histogram.quantile(1), 1U);
    EXPECT_EQ(histogram.quantile(500), 32U);
    EXPECT_EQ(histogram.quantile(900), 57U);
    EXPECT_EQ(histogram.quantile(1000), 63U);
}

TEST(CostHistogram, ARankThatIsAWholeNumberIsTakenAsItIs) {
    CostHistogram histogram;
    for (int i = 0; i < 999; ++i) {
        histogram.add(10);
    }
    histogram.add(50);
    EXPECT_EQ(histogram.quantile(999), 10U);
    EXPECT_EQ(histogram.quantile(1000), 50U);
}

TEST(CostHistogram, AQuantileIsTheEndOfItsBucket) {
    CostHistogram histogram;
    histogram.add(64);      // 64 and 65
    histogram.add(1000);    // 992 to 1007
    histogram.add(100000);  // 98304 to 100351
    histogram.add(900000);
    EXPECT_EQ(histogram.quantile(250), 65U);
    EXPECT_EQ(histogram.quantile(500), 1007U);
    EXPECT_EQ(histogram.quantile(750), 100351U);
}

TEST(CostHistogram, NoQuantileIsAboveTheLargestValue) {
    CostHistogram histogram;
    histogram.add(1000);
    EXPECT_EQ(histogram.quantile(500), 1000U);
    EXPECT_EQ(histogram.max(), 1000U);
}

TEST(CostHistogram, NoQuantileIsTooLowOrMoreThanOneThirtySecondTooHigh) {
    for (std::uint64_t value = 1; value < (std::uint64_t{1} << 40); value += value / 7 + 1) {
        CostHistogram histogram;
        histogram.add(value);
        histogram.add(UINT64_MAX);
        EXPECT_GE(histogram.quantile(500), value);
        EXPECT_LE(histogram.quantile(500), value + value / 32);
    }
}

TEST(CostHistogram, TheLargestNumberHasABucket) {
    CostHistogram histogram;
    histogram.add(1);
    histogram.add(UINT64_MAX - 1);
    histogram.add(UINT64_MAX);
    EXPECT_EQ(histogram.quantile(400), UINT64_MAX);
    EXPECT_EQ(histogram.max(), UINT64_MAX);
}

}  // namespace
}  // namespace kova::app
