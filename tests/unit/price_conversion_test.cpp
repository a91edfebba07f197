// From the exchange's doubles to hundredths: rounding, borders, and what is no value at all.

#include "snapshot/PriceConversion.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

constexpr double kNoValue = std::numeric_limits<double>::max();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();

TEST(PriceConversion, APriceIsInHundredths) {
    EXPECT_EQ(ToCents(0.0), 0);
    EXPECT_EQ(ToCents(0.01), 1);
    EXPECT_EQ(ToCents(1.0), 100);
    EXPECT_EQ(ToCents(3000.05), 300005);
    EXPECT_EQ(ToCents(77777.0), 7777700);
}

TEST(PriceConversion, HalfAHundredthIsRoundedUp) {
    EXPECT_EQ(ToCents(12.345), 1235);
    EXPECT_EQ(ToCents(10.125), 1013);  // exact in binary
    EXPECT_EQ(ToCents(0.125), 13);
    EXPECT_EQ(ToCents(0.005), 1);
    EXPECT_EQ(ToCents(0.004), 0);
}

TEST(PriceConversion, AHalfThatBinaryPutsBelowIsRoundedDown) {
    EXPECT_EQ(ToCents(1.005), 100);  // times 100 is 100.49999999999999
    EXPECT_EQ(ToCents(0.285), 28);   // times 100 is 28.499999999999996
    EXPECT_EQ(ToCents(4.35), 435);   // times 100 is 434.99999999999994
}

TEST(PriceConversion, ANegativePriceIsCutTowardsZeroAfterHalfIsAdded) {
    EXPECT_EQ(ToCents(-1.0), -99);       // -99.5
    EXPECT_EQ(ToCents(-12.34), -1233);   // -1233.5
    EXPECT_EQ(ToCents(-12.345), -1234);  // -1234.0
    EXPECT_EQ(ToCents(-0.01), 0);        // -0.5
    EXPECT_EQ(ToCents(-0.0), 0);
    EXPECT_EQ(ToCentsInt64(-12.34), -1233);
}

TEST(PriceConversion, PricesUpToTheBordersOfThirtyTwoBitsAreKept) {
    EXPECT_EQ(ToCents(21474836.47), 2147483647);
    EXPECT_EQ(ToCents(-21474836.48), -2147483647);  // -2147483647.5
    EXPECT_EQ(ToCents(-21474836.49), -2147483647 - 1);
}

TEST(PriceConversion, APriceBeyondThirtyTwoBitsIsZero) {
    EXPECT_EQ(ToCents(21474836.48), 0);
    EXPECT_EQ(ToCents(-21474836.50), 0);
    EXPECT_EQ(ToCents(1e10), 0);
    EXPECT_EQ(ToCents(-1e10), 0);
    EXPECT_EQ(ToCents(1e300), 0);
}

TEST(PriceConversion, SignedAmountsUpToTheBordersOfSixtyFourBitsAreKept) {
    EXPECT_EQ(ToCentsInt64(21474836.48), 2147483648);
    EXPECT_EQ(ToCentsInt64(12.345), 1235);
    EXPECT_EQ(ToCentsInt64(92233720368547744.0), 9223372036854774784);
    EXPECT_EQ(ToCentsInt64(-92233720368547760.0), std::numeric_limits<std::int64_t>::min());
}

TEST(PriceConversion, ASignedAmountBeyondSixtyFourBitsIsZero) {
    EXPECT_EQ(ToCentsInt64(92233720368547760.0), 0);  // 2 to the power of 63
    EXPECT_EQ(ToCentsInt64(-92233720368547776.0), 0);
    EXPECT_EQ(ToCentsInt64(1e300), 0);
    EXPECT_EQ(ToCentsInt64(-1e300), 0);
}

TEST(PriceConversion, UnsignedAmountsUpToTheBorderOfSixtyFourBitsAreKept) {
    EXPECT_EQ(ToCentsUint64(0.0), 0U);
    EXPECT_EQ(ToCentsUint64(12.345), 1235U);
    EXPECT_EQ(ToCentsUint64(1e17), 10'000'000'000'000'000'000U);
    EXPECT_EQ(ToCentsUint64(184467440737095488.0), 18'446'744'073'709'549'568U);
}

TEST(PriceConversion, AnUnsignedAmountBeyondSixtyFourBitsOrBelowZeroIsZero) {
    EXPECT_EQ(ToCentsUint64(184467440737095520.0), 0U);  // 2 to the power of 64
    EXPECT_EQ(ToCentsUint64(1e300), 0U);
    EXPECT_EQ(ToCentsUint64(-0.006), 0U);
    EXPECT_EQ(ToCentsUint64(-1.0), 0U);
    EXPECT_EQ(ToCentsUint64(-1e300), 0U);
}

TEST(PriceConversion, LotsAreRoundedAndNotMultiplied) {
    EXPECT_EQ(ToLots(0.0), 0U);
    EXPECT_EQ(ToLots(0.4), 0U);
    EXPECT_EQ(ToLots(0.5), 1U);
    EXPECT_EQ(ToLots(1234567.0), 1234567U);
    EXPECT_EQ(ToLots(18446744073709549568.0), 18'446'744'073'709'549'568U);
}

TEST(PriceConversion, LotsThatNoIntegerHoldsAreZero) {
    EXPECT_EQ(ToLots(18446744073709551616.0), 0U);
    EXPECT_EQ(ToLots(-1.0), 0U);
    EXPECT_EQ(ToLots(-2.0), 0U);
}

TEST(PriceConversion, TheLargestFiniteDoubleIsNoValue) {
    EXPECT_EQ(ToCents(kNoValue), 0);
    EXPECT_EQ(ToCentsInt64(kNoValue), 0);
    EXPECT_EQ(ToCentsUint64(kNoValue), 0U);
    EXPECT_EQ(ToLots(kNoValue), 0U);
    EXPECT_EQ(ToCents(-kNoValue), 0);
    EXPECT_EQ(ToCentsInt64(-kNoValue), 0);
    EXPECT_EQ(ToCentsUint64(-kNoValue), 0U);
    EXPECT_EQ(ToLots(-kNoValue), 0U);
}

TEST(PriceConversion, InfinityAndNotANumberAreZero) {
    for (const double value : {kInfinity, -kInfinity, kNotANumber, -kNotANumber}) {
        EXPECT_EQ(ToCents(value), 0) << value;
        EXPECT_EQ(ToCentsInt64(value), 0) << value;
        EXPECT_EQ(ToCentsUint64(value), 0U) << value;
        EXPECT_EQ(ToLots(value), 0U) << value;
    }
}

}  // namespace
