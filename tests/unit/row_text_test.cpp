// Rows as lines of the log, each field with a value of its own.

#include "instruments/RowText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

namespace {

SInstTableType row_of_distinct_values() {
    SInstTableType row{};
    row.config = 999;  // not told
    row.price_tick = 101;
    row.codec_price = -102;
    row.vol_multiple = 4000000103;
    row.change_no = 4000000104;
    row.update_mill_sec = 4000000105;
    row.updatetime = 4000000106;
    row.bid5_price = -107;
    row.bid5_vol = 4000000108;
    row.bid4_price = -109;
    row.bid4_vol = 4000000110;
    row.bid3_price = -111;
    row.bid3_vol = 4000000112;
    row.bid2_price = -113;
    row.bid2_vol = 4000000114;
    row.bid1_price = -115;
    row.bid1_vol = 4000000116;
    row.ask5_price = -117;
    row.ask5_vol = 4000000118;
    row.ask4_price = -119;
    row.ask4_vol = 4000000120;
    row.ask3_price = -121;
    row.ask3_vol = 4000000122;
    row.ask2_price = -123;
    row.ask2_vol = 4000000124;
    row.ask1_price = -125;
    row.ask1_vol = 4000000126;
    row.open_interest = 18446744073709551527U;
    row.turnover = 18446744073709551529U;
    row.volume = 4000000131;
    row.last_price = -132;
    std::memcpy(row.inst_id, "cu2401", 7);
    row.upper_limit_price = -137;
    row.lower_limit_price = -138;
    row.bid_volume = 4000000139;
    row.bid_amount = -9000000000000000140;
    row.ask_volume = 4000000142;
    row.ask_amount = -9000000000000000143;
    row.high_price = -145;
    row.low_price = -146;
    row.reserved[0] = 998;  // not told
    return row;
}

TEST(RowText, ARowOfTheTableTellsEveryField) {
    EXPECT_STREQ(TableRowText(16383, row_of_distinct_values()).szText,
                 "index:16383,inst_id:cu2401,price_tick:101,codec_price:-102,vol_multiple:4000000103,"
                 "change_no:4000000104,update_mill_sec:4000000105,updatetime:4000000106,bid5_price:-107,"
                 "bid5_vol:4000000108,bid4_price:-109,bid4_vol:4000000110,bid3_price:-111,bid3_vol:4000000112,"
                 "bid2_price:-113,bid2_vol:4000000114,bid1_price:-115,bid1_vol:4000000116,ask5_price:-117,"
                 "ask5_vol:4000000118,ask4_price:-119,ask4_vol:4000000120,ask3_price:-121,ask3_vol:4000000122,"
                 "ask2_price:-123,ask2_vol:4000000124,ask1_price:-125,ask1_vol:4000000126,"
                 "open_interest:18446744073709551527,turnover:18446744073709551529,volume:4000000131,"
                 "last_price:-132,upper_limit_price:-137,lower_limit_price:-138,bid_volume=4000000139,"
                 "bid_amount:-9000000000000000140,ask_volume=4000000142,ask_amount:-9000000000000000143,"
                 "high_price:-145,low_price:-146.");
}

TEST(RowText, TheRowThatIsMadeWrongTellsAllButTheDaysHighAndLow) {
    EXPECT_STREQ(FaultRowText(65535, row_of_distinct_values()).szText,
                 "error_instno:65535,inst_id:cu2401,price_tick:101,codec_price:-102,vol_multiple:4000000103,"
                 "change_no:4000000104,update_mill_sec:4000000105,updatetime:4000000106,bid5_price:-107,"
                 "bid5_vol:4000000108,bid4_price:-109,bid4_vol:4000000110,bid3_price:-111,bid3_vol:4000000112,"
                 "bid2_price:-113,bid2_vol:4000000114,bid1_price:-115,bid1_vol:4000000116,ask5_price:-117,"
                 "ask5_vol:4000000118,ask4_price:-119,ask4_vol:4000000120,ask3_price:-121,ask3_vol:4000000122,"
                 "ask2_price:-123,ask2_vol:4000000124,ask1_price:-125,ask1_vol:4000000126,"
                 "open_interest:18446744073709551527,turnover:18446744073709551529,volume:4000000131,"
                 "last_price:-132,upper_limit_price:-137,lower_limit_price:-138,bid_volume=4000000139,"
                 "bid_amount:-9000000000000000140,ask_volume=4000000142,ask_amount:-9000000000000000143");
}

TEST(RowText, AnEmptyRowIsToldWithZeros) {
    EXPECT_STREQ(TableRowText(0, SInstTableType{}).szText,
                 "index:0,inst_id:,price_tick:0,codec_price:0,vol_multiple:0,change_no:0,update_mill_sec:0,"
                 "updatetime:0,bid5_price:0,bid5_vol:0,bid4_price:0,bid4_vol:0,bid3_price:0,bid3_vol:0,"
                 "bid2_price:0,bid2_vol:0,bid1_price:0,bid1_vol:0,ask5_price:0,ask5_vol:0,ask4_price:0,"
                 "ask4_vol:0,ask3_price:0,ask3_vol:0,ask2_price:0,ask2_vol:0,ask1_price:0,ask1_vol:0,"
                 "open_interest:0,turnover:0,volume:0,last_price:0,upper_limit_price:0,lower_limit_price:0,"
                 "bid_volume=0,bid_amount:0,ask_volume=0,ask_amount:0,high_price:0,low_price:0.");
}

TEST(RowText, AnIdentifierWithoutANulEndsWithItsSixteenBytes) {
    SInstTableType row = row_of_distinct_values();
    std::memcpy(row.inst_id, "0123456789abcdef", 16);
    EXPECT_TRUE(std::string(TableRowText(1, row).szText)
                    .starts_with("index:1,inst_id:0123456789abcdef,price_tick:101,"));
    EXPECT_TRUE(std::string(FaultRowText(1, row).szText)
                    .starts_with("error_instno:1,inst_id:0123456789abcdef,price_tick:101,"));
}

TEST(RowText, TheLongestRowIsNotCut) {
    SInstTableType row;
    std::memset(&row, 0x80, sizeof(row));  // the most digits in every field
    std::memcpy(row.inst_id, "0123456789abcdef", 16);
    EXPECT_TRUE(
        std::string(TableRowText(std::numeric_limits<std::int32_t>::min(), row).szText)
            .ends_with(",ask_amount:-9187201950435737472,high_price:-2139062144,low_price:-2139062144."));
}

}  // namespace
