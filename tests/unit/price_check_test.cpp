// The ladder of an instrument's prices: what passes, what fails, and what the log says of it.

#include "integrity/PriceCheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "support/log_run.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kHighest = std::numeric_limits<int>::max();
constexpr int kLowest = std::numeric_limits<int>::min();

using Ladder = std::vector<int>;

/** What checking a ladder gives and logs, a line as "[W][function]message". */
struct Verdict {
    int result = 1;
    std::vector<std::string> lines;
};

Verdict check(const Ladder& ladder, int upper = 110, int lower = 90) {
    Verdict verdict;
    const kova::test::LogRun run =
        kova::test::run_apart([&] { std::_Exit(100 + CheckPrice(ladder, upper, lower)); });
    EXPECT_TRUE(WIFEXITED(run.status));
    verdict.result = WEXITSTATUS(run.status) - 100;
    for (const std::string& text : kova::test::split_lines(run.console)) {
        const auto line = kova::test::parse_log_line(text);
        verdict.lines.push_back(line ? line->tag.substr(line->tag.size() - 3) +
                                           line->body.substr(line->body.find(']') + 1)
                                     : "<torn>" + text);
    }
    return verdict;
}

void expect_pass(const Ladder& ladder, int upper = 110, int lower = 90) {
    const Verdict verdict = check(ladder, upper, lower);
    EXPECT_EQ(verdict.result, 0);
    EXPECT_THAT(verdict.lines, IsEmpty());
}

void expect_out_of_order(const Ladder& ladder, const std::string& index, int upper = 110, int lower = 90) {
    const Verdict verdict = check(ladder, upper, lower);
    EXPECT_EQ(verdict.result, -2);
    EXPECT_THAT(verdict.lines,
                ElementsAre("[W][CheckPrice]The price is abnormal, price index is :" + index + " "));
}

void expect_out_of_limits(const Ladder& ladder, const std::string& told, int upper = 110, int lower = 90) {
    const Verdict verdict = check(ladder, upper, lower);
    EXPECT_EQ(verdict.result, -1);
    EXPECT_THAT(verdict.lines, ElementsAre("[W][CheckPrice](price > up) or (price < lower), " + told));
}

TEST(PriceCheck, ALadderWithoutAnyPricePasses) {
    expect_pass({0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    expect_pass({0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 0, 0);
    expect_pass({});
}

TEST(PriceCheck, AFullLadderInsideItsLimitsPasses) {
    expect_pass({105, 104, 103, 102, 101, 100, 99, 98, 97, 96});
}

TEST(PriceCheck, PricesOnTheLimitsPass) {
    expect_pass({110, 104, 103, 102, 101, 100, 99, 98, 97, 90});
}

TEST(PriceCheck, EmptyLevelsAboveTheFirstPriceAreSkipped) {
    expect_pass({0, 104, 103, 102, 101, 100, 99, 98, 97, 96});
    expect_pass({0, 0, 103, 102, 101, 100, 99, 98, 97, 96});
    expect_pass({0, 0, 0, 0, 0, 100, 99, 98, 97, 96});
    expect_pass({0, 0, 0, 0, 0, 0, 0, 0, 0, 96});
}

TEST(PriceCheck, EmptyLevelsBelowTheLastPricePass) {
    expect_pass({105, 104, 103, 102, 101, 0, 0, 0, 0, 0});
    expect_pass({0, 0, 0, 102, 101, 100, 99, 0, 0, 0});
    expect_pass({105, 0, 0, 0, 0, 0, 0, 0, 0, 0});
}

TEST(PriceCheck, ABidThatEqualsTheAskFails) {
    expect_out_of_order({105, 104, 103, 102, 101, 101, 99, 98, 97, 96}, "5");
}

TEST(PriceCheck, ABidAboveTheAskFails) {
    expect_out_of_order({105, 104, 103, 102, 101, 102, 99, 98, 97, 96}, "5");
}

TEST(PriceCheck, TwoLevelsOfOnePriceFail) {
    expect_out_of_order({105, 105, 103, 102, 101, 100, 99, 98, 97, 96}, "1");
    expect_out_of_order({105, 104, 103, 102, 101, 100, 99, 98, 97, 97}, "9");
}

TEST(PriceCheck, AGapInsideTheLadderFails) {
    expect_out_of_order({105, 0, 103, 102, 101, 100, 99, 98, 97, 96}, "2");
    expect_out_of_order({105, 104, 103, 102, 0, 100, 99, 98, 97, 96}, "5");
    expect_out_of_order({105, 104, 103, 102, 101, 100, 99, 98, 0, 96}, "9");
}

TEST(PriceCheck, APriceAboveTheUpperLimitFails) {
    expect_out_of_limits({111, 104, 103, 102, 101, 100, 99, 98, 97, 96},
                         "price is 111, up is 110, lower is 90, shfe2psInstTable index is :0");
}

TEST(PriceCheck, APriceBelowTheLowerLimitFails) {
    expect_out_of_limits({105, 104, 103, 102, 101, 100, 99, 98, 97, 89},
                         "price is 89, up is 110, lower is 90, shfe2psInstTable index is :9");
}

TEST(PriceCheck, TheLimitsAreAskedBeforeTheOrder) {
    expect_out_of_limits({105, 111, 103, 102, 101, 100, 99, 98, 97, 96},
                         "price is 111, up is 110, lower is 90, shfe2psInstTable index is :1");
}

TEST(PriceCheck, TheFirstThingThatIsWrongCounts) {
    expect_out_of_order({105, 106, 111, 102, 101, 100, 99, 98, 97, 96}, "1");
}

TEST(PriceCheck, NegativePricesAreOrderedLikeOthers) {
    expect_pass({5, 4, 3, 2, 1, -1, -2, -3, -4, -5}, 10, -10);
    expect_pass({-1, -2, -3, -4, -5, -6, -7, -8, -9, -10}, 0, -10);
    expect_out_of_order({-1, -2, -3, -4, -5, -4, -7, -8, -9, -10}, "5", 0, -10);
    expect_out_of_limits({-1, -2, -3, -4, -5, -6, -7, -8, -9, -11},
                         "price is -11, up is 0, lower is -10, shfe2psInstTable index is :9", 0, -10);
}

TEST(PriceCheck, ANegativePriceBelowAnEmptyLevelIsInOrderWhenTheLimitsAllowIt) {
    expect_pass({105, 104, 103, 102, 101, 100, 0, -3, -4, -5}, 110, -10);
    expect_out_of_limits({105, 104, 103, 102, 101, 100, 0, -3, -4, -5},
                         "price is -3, up is 110, lower is 90, shfe2psInstTable index is :7");
}

TEST(PriceCheck, AnEmptyLevelBelowANegativePriceFails) {
    expect_out_of_order({5, 4, 3, 2, 1, -1, -2, -3, -4, 0}, "9", 10, -10);
}

TEST(PriceCheck, TheGreatestIntegerStandsForNoPriceYet) {
    expect_out_of_order({kHighest, 104, 103, 102, 101, 100, 99, 98, 97, 96}, "0", kHighest, kLowest);
    expect_pass({kHighest - 1, 104, 103, 102, 101, 100, 99, 98, 97, kLowest}, kHighest, kLowest);
}

TEST(PriceCheck, LimitsOfZeroRefuseEveryPrice) {
    expect_out_of_limits({0, 0, 0, 0, 0, 100, 99, 98, 97, 96},
                         "price is 100, up is 0, lower is 0, shfe2psInstTable index is :5", 0, 0);
}

}  // namespace
