// Deliberate errors in a row: exactly which fields change, and by how much.

#include "instruments/FaultInjection.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>

namespace {

/** A row in which no two fields that a fault may touch are alike. */
SInstTableType row_with_limits(std::int32_t upper, std::int32_t lower) {
    SInstTableType row;
    std::memset(&row, 0x5A, sizeof(row));
    row.bid1_price = 100;
    row.bid2_price = 99;
    row.bid1_vol = 11;
    row.bid2_vol = 12;
    row.ask1_price = 101;
    row.ask2_price = 102;
    row.ask4_price = 104;
    row.ask5_price = 105;
    row.ask4_vol = 14;
    row.ask5_vol = 15;
    row.upper_limit_price = upper;
    row.lower_limit_price = lower;
    return row;
}

SInstTableType ordinary_row() {
    return row_with_limits(1500, 500);
}

bool are_equal(const SInstTableType& left, const SInstTableType& right) {
    return std::memcmp(&left, &right, sizeof(left)) == 0;
}

struct Limits {
    std::int32_t upper;
    std::int32_t lower;

    friend bool operator==(const Limits&, const Limits&) = default;
};

/** The limits that narrowing makes of these; nothing else may have changed. */
Limits narrowed(Limits limits, std::uint16_t parts) {
    SInstTableType row = row_with_limits(limits.upper, limits.lower);
    InjectFault(row, 1, parts);
    const Limits result{row.upper_limit_price, row.lower_limit_price};
    EXPECT_TRUE(are_equal(row, row_with_limits(result.upper, result.lower)));
    return result;
}

TEST(FaultInjection, CaseZeroSwapsTheFirstTwoBidPricesAndTheLastTwoAskPrices) {
    SInstTableType row = ordinary_row();
    InjectFault(row, 0, 4);
    SInstTableType expected = ordinary_row();
    expected.bid1_price = 99;
    expected.bid2_price = 100;
    expected.ask5_price = 104;
    expected.ask4_price = 105;
    EXPECT_TRUE(are_equal(row, expected));
}

TEST(FaultInjection, CaseTwoTakesOnePriceAndAnotherLevelsVolume) {
    SInstTableType row = ordinary_row();
    InjectFault(row, 2, 4);
    SInstTableType expected = ordinary_row();
    expected.bid1_price = 0;
    expected.bid2_vol = 0;
    EXPECT_TRUE(are_equal(row, expected));
}

TEST(FaultInjection, OtherCasesChangeNothing) {
    for (const std::uint16_t error_case : std::to_array<std::uint16_t>({3, 4, 256, 65535})) {
        SInstTableType row = ordinary_row();
        InjectFault(row, error_case, 4);
        EXPECT_TRUE(are_equal(row, ordinary_row())) << error_case;
    }
}

TEST(FaultInjection, NarrowingByFourLeavesAnEighthOfTheBand) {
    // 1000 / 16 = 62; 62 x 14 = 868; 868 / 2 = 434
    EXPECT_EQ(narrowed({1500, 500}, 4), (Limits{1066, 934}));
}

TEST(FaultInjection, NarrowingByTwoLeavesHalfOfTheBand) {
    // 1000 / 4 = 250; 250 x 2 = 500; 500 / 2 = 250
    EXPECT_EQ(narrowed({1500, 500}, 2), (Limits{1250, 750}));
}

TEST(FaultInjection, NarrowingByOneLeavesTheBand) {
    EXPECT_EQ(narrowed({1500, 500}, 1), (Limits{1500, 500}));
}

TEST(FaultInjection, NarrowingByZeroWidensTheBandByHalfItsWidthOnEachSide) {
    EXPECT_EQ(narrowed({1500, 500}, 0), (Limits{2000, 0}));
}

TEST(FaultInjection, BothDivisionsAreCutTowardsZero) {
    // 1001 / 1 = 1001; 1001 x -1 = -1001; -1001 / 2 = -500
    EXPECT_EQ(narrowed({1501, 500}, 0), (Limits{2001, 0}));
    // -1001 / 4 = -250; -250 x 2 = -500; -500 / 2 = -250
    EXPECT_EQ(narrowed({500, 1501}, 2), (Limits{750, 1251}));
    // -1000 / 16 = -62; -62 x 14 = -868; -868 / 2 = -434
    EXPECT_EQ(narrowed({500, 1500}, 4), (Limits{934, 1066}));
}

TEST(FaultInjection, NarrowingByThirtyIsTheMostThatCounts) {
    // 2100000000 / 1073741824 = 1; 1 x 1073741822 / 2 = 536870911
    EXPECT_EQ(narrowed({2000000000, -100000000}, 30), (Limits{1463129089, 436870911}));
    EXPECT_EQ(narrowed({1500, 500}, 30), (Limits{1500, 500}));
}

TEST(FaultInjection, NarrowingByThirtyOneAndMoreChangesNothing) {
    for (const std::uint16_t parts : std::to_array<std::uint16_t>({31, 32, 33, 63, 64, 1024, 65535})) {
        EXPECT_EQ(narrowed({2000000000, -100000000}, parts), (Limits{2000000000, -100000000})) << parts;
    }
}

TEST(FaultInjection, ABandThatNoIntegerHoldsWrapsAround) {
    // 4000000000 wraps to -294967296; / 16 = -18435456; x 14 = -258096384; / 2 = -129048192
    EXPECT_EQ(narrowed({2000000000, -2000000000}, 4), (Limits{2129048192, -2129048192}));
    // step -1073741823; the upper limit wraps from 3221225470
    EXPECT_EQ(narrowed({2147483647, 0}, 0), (Limits{-1073741826, -1073741823}));
}

}  // namespace
