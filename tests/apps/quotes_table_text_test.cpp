#include "kova_quotes/table_text.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <string>

#include "apps/quotes_sample.h"

namespace kova::app {
namespace {

constexpr TableLayout kPlain{.columns = TableLayout::kAllColumns, .has_colour = false};
constexpr TableLayout kColoured{.columns = TableLayout::kAllColumns, .has_colour = true};

std::string header(const TableLayout& layout) {
    std::array<char, kMaxTableText> room{};
    return {room.data(), table_header(room.data(), layout)};
}

std::string row(const KovaShfeMdType& quote, const TableLayout& layout, std::optional<int32_t> previous = {}) {
    std::array<char, kMaxTableText> room{};
    return {room.data(), table_row(room.data(), quote, layout, previous)};
}

TEST(TableText, TheHeaderStandsAboveItsColumns) {
    EXPECT_EQ(header(kPlain),
              "time         instrument        last  change bid vol       bid       ask ask vol"
              "    volume  open int  change no\n");
}

TEST(TableText, PricesAreInTheExchangesUnits) {
    EXPECT_EQ(row(full_quote(), kPlain),
              "09:30:15.500 cu2509        78120.00              11  78110.00  78130.00      21"
              "     12345    198765       4711\n");
}

TEST(TableText, TheChangeSinceTheRowBeforeHasASign) {
    EXPECT_EQ(row(full_quote(), kPlain, 7811505).substr(26, 17), " 78120.00   +4.95");
    EXPECT_EQ(row(full_quote(), kPlain, 7812005).substr(26, 17), " 78120.00   -0.05");
    EXPECT_EQ(row(full_quote(), kPlain, 7812000).substr(26, 17), " 78120.00        ");
}

TEST(TableText, ARiseIsRedAndAFallIsGreen) {
    EXPECT_NE(row(full_quote(), kColoured, 7811000).find("\x1b[31m 78120.00\x1b[0m \x1b[31m +10.00\x1b[0m"),
              std::string::npos);
    EXPECT_NE(row(full_quote(), kColoured, 7813000).find("\x1b[32m 78120.00\x1b[0m \x1b[32m -10.00\x1b[0m"),
              std::string::npos);
    EXPECT_EQ(row(full_quote(), kColoured, 7812000).find('\x1b'), std::string::npos);
    EXPECT_EQ(row(full_quote(), kColoured).find('\x1b'), std::string::npos);
}

TEST(TableText, WithoutColourNothingIsMarked) {
    EXPECT_EQ(row(full_quote(), kPlain, 7811000).find('\x1b'), std::string::npos);
    EXPECT_EQ(header(kPlain).find('\x1b'), std::string::npos);
    EXPECT_NE(header(kColoured).find('\x1b'), std::string::npos);
}

TEST(TableText, ALevelWithoutOrdersIsADash) {
    KovaShfeMdType quote = full_quote();
    quote.bid1_px = 0;
    quote.bid1_vol = 0;
    EXPECT_EQ(row(quote, kPlain).substr(43, 36), "       -         -  78130.00      21");
}

TEST(TableText, ALevelAtPriceZeroWithOrdersIsAPrice) {
    KovaShfeMdType quote = full_quote();
    quote.bid1_px = 0;
    EXPECT_EQ(row(quote, kPlain).substr(43, 18), "      11      0.00");
}

TEST(TableText, APriceBetweenMinusOneAndZeroKeepsItsSign) {
    EXPECT_NE(row(make_quote("sc2509", 1, -5), kPlain).find("  -0.05 "), std::string::npos);
}

TEST(TableText, ANumberThatIsNoTimeOfDayStandsAsItIs) {
    KovaShfeMdType quote = full_quote();
    quote.update_time = 1735689600;
    EXPECT_EQ(row(quote, kPlain).substr(0, 15), "1735689600.500 ");
    quote.update_time = 96000;
    EXPECT_EQ(row(quote, kPlain).substr(0, 13), "96000.500    ");
    quote.update_time = 235959;
    EXPECT_EQ(row(quote, kPlain).substr(0, 13), "23:59:59.500 ");
}

TEST(TableText, AControlCharacterInAnIdentifierDoesNotReachTheTerminal) {
    EXPECT_EQ(row(make_quote("a\x1b[2J", 1), kPlain).find('\x1b'), std::string::npos);
}

TEST(TableText, ANarrowTerminalGetsFewerColumnsButNeverLessThanThoseUpToTheBestAsk) {
    EXPECT_EQ(TableLayout::for_width(110, true).columns, 11U);
    EXPECT_EQ(TableLayout::for_width(109, true).columns, 10U);
    EXPECT_EQ(TableLayout::for_width(80, true).columns, 8U);
    EXPECT_EQ(TableLayout::for_width(20, true).columns, 8U);
    EXPECT_EQ(header({.columns = 8, .has_colour = false}).size(), 79U + 1);
}

TEST(TableText, TheLongestValuesFitTheRoom) {
    KovaShfeMdType quote = make_quote("0123456789abcdef", 4294967295U, std::numeric_limits<int32_t>::min());
    quote.update_time = 4294967295U;
    quote.update_milli_sec = 65535;
    quote.bid1_px = quote.ask1_px = quote.last_px;
    quote.bid1_vol = quote.ask1_vol = quote.volume = 4294967295U;
    quote.open_interest = std::numeric_limits<int64_t>::min();
    const std::string text = row(quote, kColoured, std::numeric_limits<int32_t>::max());
    EXPECT_LT(text.size(), kMaxTableText);
    EXPECT_NE(text.find("-42949672.95"), std::string::npos);
    EXPECT_NE(text.find("-9223372036854775808"), std::string::npos);
}

}  // namespace
}  // namespace kova::app
