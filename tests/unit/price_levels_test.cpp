// Where a price level of the snapshot goes in its row.

#include "snapshot/PriceLevels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

/** Price and volume, the first level first. */
using Levels = std::vector<std::pair<std::int32_t, std::uint32_t>>;

Levels bids(const SInstTableType& row) {
    return {{row.bid1_price, row.bid1_vol},
            {row.bid2_price, row.bid2_vol},
            {row.bid3_price, row.bid3_vol},
            {row.bid4_price, row.bid4_vol},
            {row.bid5_price, row.bid5_vol}};
}

Levels asks(const SInstTableType& row) {
    return {{row.ask1_price, row.ask1_vol},
            {row.ask2_price, row.ask2_vol},
            {row.ask3_price, row.ask3_vol},
            {row.ask4_price, row.ask4_vol},
            {row.ask5_price, row.ask5_vol}};
}

SInstTableType with_bids(const Levels& levels) {
    SInstTableType row{};
    for (const auto& [price, volume] : levels) {
        PutBidLevel(row, price, volume);
    }
    return row;
}

SInstTableType with_asks(const Levels& levels) {
    SInstTableType row{};
    for (const auto& [price, volume] : levels) {
        PutAskLevel(row, price, volume);
    }
    return row;
}

TEST(PriceLevels, BidsThatComeBestFirstFillTheSlotsInOrder) {
    const SInstTableType row = with_bids({{10100, 1}, {10050, 2}, {10000, 3}});
    EXPECT_THAT(bids(row), ElementsAre(Pair(10100, 1), Pair(10050, 2), Pair(10000, 3), Pair(0, 0), Pair(0, 0)));
    EXPECT_EQ(asks(row), Levels(5));
}

TEST(PriceLevels, BidsThatComeWorstFirstEachOverwriteTheFirst) {
    EXPECT_THAT(bids(with_bids({{10000, 3}, {10050, 2}, {10100, 1}})),
                ElementsAre(Pair(10100, 1), Pair(0, 0), Pair(0, 0), Pair(0, 0), Pair(0, 0)));
}

TEST(PriceLevels, AsksThatComeBestFirstFillTheSlotsInOrder) {
    const SInstTableType row = with_asks({{10100, 1}, {10150, 2}, {10200, 3}});
    EXPECT_THAT(asks(row), ElementsAre(Pair(10100, 1), Pair(10150, 2), Pair(10200, 3), Pair(0, 0), Pair(0, 0)));
    EXPECT_EQ(bids(row), Levels(5));
}

TEST(PriceLevels, AsksThatComeWorstFirstEachOverwriteTheFirst) {
    EXPECT_THAT(asks(with_asks({{10200, 3}, {10150, 2}, {10100, 1}})),
                ElementsAre(Pair(10100, 1), Pair(0, 0), Pair(0, 0), Pair(0, 0), Pair(0, 0)));
}

TEST(PriceLevels, FiveLevelsOfEachSideHaveRoom) {
    EXPECT_THAT(bids(with_bids({{105, 1}, {104, 2}, {103, 3}, {102, 4}, {101, 5}})),
                ElementsAre(Pair(105, 1), Pair(104, 2), Pair(103, 3), Pair(102, 4), Pair(101, 5)));
    EXPECT_THAT(asks(with_asks({{101, 1}, {102, 2}, {103, 3}, {104, 4}, {105, 5}})),
                ElementsAre(Pair(101, 1), Pair(102, 2), Pair(103, 3), Pair(104, 4), Pair(105, 5)));
}

TEST(PriceLevels, ASixthLevelThatIsWorseOverwritesTheLast) {
    EXPECT_THAT(bids(with_bids({{105, 1}, {104, 2}, {103, 3}, {102, 4}, {101, 5}, {100, 6}})),
                ElementsAre(Pair(105, 1), Pair(104, 2), Pair(103, 3), Pair(102, 4), Pair(100, 6)));
    EXPECT_THAT(asks(with_asks({{101, 1}, {102, 2}, {103, 3}, {104, 4}, {105, 5}, {106, 6}})),
                ElementsAre(Pair(101, 1), Pair(102, 2), Pair(103, 3), Pair(104, 4), Pair(106, 6)));
}

TEST(PriceLevels, ABetterLevelOverwritesItsSlotAndNothingMoves) {
    EXPECT_THAT(bids(with_bids({{110, 1}, {108, 2}, {106, 3}, {104, 4}, {107, 5}})),
                ElementsAre(Pair(110, 1), Pair(108, 2), Pair(107, 5), Pair(104, 4), Pair(0, 0)));
    EXPECT_THAT(asks(with_asks({{100, 1}, {102, 2}, {104, 3}, {106, 4}, {103, 5}})),
                ElementsAre(Pair(100, 1), Pair(102, 2), Pair(103, 5), Pair(106, 4), Pair(0, 0)));
}

TEST(PriceLevels, TheSamePriceAgainOverwritesItsSlot) {
    EXPECT_THAT(bids(with_bids({{110, 1}, {108, 2}, {108, 7}})),
                ElementsAre(Pair(110, 1), Pair(108, 7), Pair(0, 0), Pair(0, 0), Pair(0, 0)));
    EXPECT_THAT(asks(with_asks({{110, 1}, {112, 2}, {110, 7}})),
                ElementsAre(Pair(110, 7), Pair(112, 2), Pair(0, 0), Pair(0, 0), Pair(0, 0)));
}

TEST(PriceLevels, ASlotWithoutAPositivePriceIsFree) {
    EXPECT_THAT(bids(with_bids({{-5, 1}, {-9, 2}})),
                ElementsAre(Pair(-9, 2), Pair(0, 0), Pair(0, 0), Pair(0, 0), Pair(0, 0)));
    EXPECT_THAT(asks(with_asks({{-9, 1}, {-5, 2}})),
                ElementsAre(Pair(-5, 2), Pair(0, 0), Pair(0, 0), Pair(0, 0), Pair(0, 0)));
}

TEST(PriceLevels, ABidWithoutAPriceGoesBehindTheOthersAndFreesItsSlotAgain) {
    EXPECT_THAT(bids(with_bids({{110, 1}, {0, 2}})),
                ElementsAre(Pair(110, 1), Pair(0, 2), Pair(0, 0), Pair(0, 0), Pair(0, 0)));
    EXPECT_THAT(bids(with_bids({{110, 1}, {0, 2}, {109, 3}})),
                ElementsAre(Pair(110, 1), Pair(109, 3), Pair(0, 0), Pair(0, 0), Pair(0, 0)));
}

TEST(PriceLevels, AnAskWithoutAPriceIsBetterThanAnyAndOverwritesTheFirst) {
    EXPECT_THAT(asks(with_asks({{110, 1}, {111, 2}, {0, 3}})),
                ElementsAre(Pair(0, 3), Pair(111, 2), Pair(0, 0), Pair(0, 0), Pair(0, 0)));
}

TEST(PriceLevels, PuttingALevelWritesItsEightBytesAlone) {
    SInstTableType row;
    std::memset(&row, 0xFF, sizeof(row));  // every price is -1, so the first slots are free
    PutBidLevel(row, 0x04030201, 0x08070605);
    PutAskLevel(row, 0x14131211, 0x18171615);
    std::array<unsigned char, 256> bytes{};
    std::memcpy(bytes.data(), &row, sizeof(row));
    std::array<unsigned char, 256> expected{};
    expected.fill(0xFF);
    for (std::size_t i = 0; i < 8; ++i) {
        expected.at(60 + i) = static_cast<unsigned char>(0x01 + i);   // bid1
        expected.at(100 + i) = static_cast<unsigned char>(0x11 + i);  // ask1
    }
    EXPECT_EQ(bytes, expected);
}

TEST(PriceLevels, ClearingEmptiesTheTenLevelsAndNothingElse) {
    SInstTableType row;
    std::memset(&row, 0xFF, sizeof(row));
    ClearPriceLevels(row);
    std::array<unsigned char, 256> bytes{};
    std::memcpy(bytes.data(), &row, sizeof(row));
    std::array<unsigned char, 256> expected{};
    expected.fill(0xFF);
    for (std::size_t i = 28; i < 108; ++i) {
        expected.at(i) = 0;
    }
    EXPECT_EQ(bytes, expected);
}

}  // namespace
