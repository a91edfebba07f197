// The instrument file's name and its lines.

#include "instruments/StaticInfoText.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

namespace {

std::string name_at(int year, int month, int day, int hour, int minute) {
    std::tm time{};
    time.tm_year = year - 1900;
    time.tm_mon = month - 1;
    time.tm_mday = day;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_sec = 59;
    return StaticInfoFileName(time).data();
}

SInstTableType row_of(const char* inst_id) {
    SInstTableType row{};
    std::memcpy(row.inst_id, inst_id, strnlen(inst_id, sizeof row.inst_id));
    return row;
}

TEST(StaticInfoText, TheNameIsTheDateAndTheHalfOfTheDay) {
    EXPECT_EQ(name_at(2024, 1, 5, 21, 0), "/tmp/.shfe_20240105_pm");
    EXPECT_EQ(name_at(2026, 12, 31, 8, 55), "/tmp/.shfe_20261231_am");
}

TEST(StaticInfoText, TheFirstHalfOfADayEndsAfter1659) {
    EXPECT_EQ(name_at(2024, 1, 5, 0, 0), "/tmp/.shfe_20240105_am");
    EXPECT_EQ(name_at(2024, 1, 5, 16, 0), "/tmp/.shfe_20240105_am");
    EXPECT_EQ(name_at(2024, 1, 5, 16, 59), "/tmp/.shfe_20240105_am");
    EXPECT_EQ(name_at(2024, 1, 5, 17, 0), "/tmp/.shfe_20240105_pm");
    EXPECT_EQ(name_at(2024, 1, 5, 23, 59), "/tmp/.shfe_20240105_pm");
}

TEST(StaticInfoText, YearMonthAndDayAreFilledUpWithZeros) {
    EXPECT_EQ(name_at(987, 6, 5, 4, 3), "/tmp/.shfe_09870605_am");
}

TEST(StaticInfoText, TheHeadingNamesTwelveColumns) {
    EXPECT_STREQ(STATIC_INFO_HEADER,
                 "contract_no,contract_name,change_no,open_interest,last_price,turnover,volume,price_tick,"
                 "codec_price,vol_multiple,upper_limit_price,lower_limit_price");
}

TEST(StaticInfoText, ALineHoldsTheRawIntegersInTheOrderOfTheHeading) {
    SInstTableType row = row_of("cu2606");
    row.change_no = 1;
    row.open_interest = 2;
    row.last_price = 3;
    row.turnover = 4;
    row.volume = 5;
    row.price_tick = 6;
    row.codec_price = 7;
    row.vol_multiple = 8;
    row.upper_limit_price = 9;
    row.lower_limit_price = 10;
    EXPECT_STREQ(StaticInfoLine(77, row).szText, "77,cu2606,1,2,3,4,5,6,7,8,9,10");
}

TEST(StaticInfoText, ARowOfZerosHasAnEmptyName) {
    EXPECT_STREQ(StaticInfoLine(0, SInstTableType{}).szText, "0,,0,0,0,0,0,0,0,0,0,0");
}

TEST(StaticInfoText, UnsignedColumnsReachTheirLargestValue) {
    SInstTableType row = row_of("sc2607");
    row.change_no = 0xFFFFFFFF;
    row.open_interest = std::numeric_limits<std::uint64_t>::max();
    row.turnover = std::numeric_limits<std::uint64_t>::max();
    row.volume = 0xFFFFFFFF;
    row.vol_multiple = 0xFFFFFFFF;
    EXPECT_STREQ(StaticInfoLine(4294967295, row).szText,
                 "4294967295,sc2607,4294967295,18446744073709551615,0,18446744073709551615,4294967295,0,0,"
                 "4294967295,0,0");
}

TEST(StaticInfoText, SignedColumnsAreSigned) {
    SInstTableType row = row_of("sc2607");
    row.last_price = -2147483647 - 1;
    row.price_tick = -1;
    row.codec_price = -2;
    row.upper_limit_price = 2147483647;
    row.lower_limit_price = -3;
    EXPECT_STREQ(StaticInfoLine(1, row).szText, "1,sc2607,0,0,-2147483648,0,0,-1,-2,0,2147483647,-3");
}

TEST(StaticInfoText, AnIdentifierWithoutAnEndIsCutAtItsSixteenBytes) {
    SInstTableType row = row_of("cu2606C70000TAS!");
    row.upper_limit_price = 0x41414141;  // letters right behind it
    EXPECT_STREQ(StaticInfoLine(1, row).szText, "1,cu2606C70000TAS!,0,0,0,0,0,0,0,0,1094795585,0");
}

TEST(StaticInfoText, TheLongestLineIsNotCut) {
    SInstTableType row{};
    std::memset(&row, 0xFF, sizeof row);
    std::memset(row.inst_id, 'x', sizeof row.inst_id);
    constexpr std::int32_t lowest = -2147483647 - 1;
    row.last_price = lowest;
    row.price_tick = lowest;
    row.codec_price = lowest;
    row.upper_limit_price = lowest;
    row.lower_limit_price = lowest;
    EXPECT_STREQ(StaticInfoLine(4294967295, row).szText,
                 "4294967295,xxxxxxxxxxxxxxxx,4294967295,18446744073709551615,-2147483648,18446744073709551615,"
                 "4294967295,-2147483648,-2147483648,4294967295,-2147483648,-2147483648");
}

}  // namespace
