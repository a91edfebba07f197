#include "kova_quotes/quote_text.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <limits>
#include <string>

#include "apps/quotes_sample.h"

namespace kova::app {
namespace {

std::string csv(const KovaShfeMdType& quote) {
    std::array<char, kMaxQuoteText> room{};
    return {room.data(), csv_row(room.data(), quote)};
}

std::string json(const KovaShfeMdType& quote) {
    std::array<char, kMaxQuoteText> room{};
    return {room.data(), json_line(room.data(), quote)};
}

TEST(CsvText, TheHeaderNamesTheFieldsInTheOrderOfTheRecord) {
    std::array<char, kMaxQuoteText> room{};
    EXPECT_EQ(
        std::string(room.data(), csv_header(room.data())),
        "inst_no,inst_id,update_time,update_milli_sec,type,change_no,last_px,volume,turnover,open_interest,"
        "bid1_px,bid1_vol,bid2_px,bid2_vol,bid3_px,bid3_vol,bid4_px,bid4_vol,bid5_px,bid5_vol,"
        "ask1_px,ask1_vol,ask2_px,ask2_vol,ask3_px,ask3_vol,ask4_px,ask4_vol,ask5_px,ask5_vol,"
        "bid_volume,bid_amount,ask_volume,ask_amount,high_price,low_price,max_inst_no,last_tick_flag,"
        "reverse0,reverse1,reverse2\n");
}

TEST(CsvText, ARowHasEveryFieldUnchanged) {
    EXPECT_EQ(csv(full_quote()),
              "42,cu2509,93015,500,3,4711,7812000,12345,4823456789012,198765,"
              "7811000,11,7810000,12,7809000,13,7808000,14,7807000,15,"
              "7813000,21,7814000,22,7815000,23,7816000,24,7817000,25,"
              "365,-2850000001,415,3240000002,7899000,-7701000,11999,1,1,2,255\n");
}

TEST(CsvText, AnIdentifierWithACommaOrAQuotationMarkIsQuoted) {
    EXPECT_EQ(csv(make_quote("a,b", 1)).substr(0, 8), "0,\"a,b\",");
    EXPECT_EQ(csv(make_quote("a\"b", 1)).substr(0, 9), "0,\"a\"\"b\",");
}

TEST(CsvText, AnIdentifierOfSixteenCharactersEndsThere) {
    EXPECT_EQ(csv(make_quote("0123456789abcdef", 1)).substr(0, 21), "0,0123456789abcdef,0,");
}

TEST(CsvText, LineFeedsInAnIdentifierDoNotEndTheRow) {
    EXPECT_EQ(csv(make_quote("a\nb", 1)).substr(0, 6), "0,a?b,");
}

TEST(JsonText, ALineHasEveryFieldUnchanged) {
    EXPECT_EQ(
        json(full_quote()),
        "{\"inst_no\":42,\"inst_id\":\"cu2509\",\"update_time\":93015,\"update_milli_sec\":500,\"type\":3,"
        "\"change_no\":4711,\"last_px\":7812000,\"volume\":12345,\"turnover\":4823456789012,"
        "\"open_interest\":198765,"
        "\"bid1_px\":7811000,\"bid1_vol\":11,\"bid2_px\":7810000,\"bid2_vol\":12,"
        "\"bid3_px\":7809000,\"bid3_vol\":13,\"bid4_px\":7808000,\"bid4_vol\":14,"
        "\"bid5_px\":7807000,\"bid5_vol\":15,"
        "\"ask1_px\":7813000,\"ask1_vol\":21,\"ask2_px\":7814000,\"ask2_vol\":22,"
        "\"ask3_px\":7815000,\"ask3_vol\":23,\"ask4_px\":7816000,\"ask4_vol\":24,"
        "\"ask5_px\":7817000,\"ask5_vol\":25,"
        "\"bid_volume\":365,\"bid_amount\":-2850000001,\"ask_volume\":415,\"ask_amount\":3240000002,"
        "\"high_price\":7899000,\"low_price\":-7701000,\"max_inst_no\":11999,\"last_tick_flag\":true,"
        "\"reverse0\":1,\"reverse1\":2,\"reverse2\":255}\n");
}

TEST(JsonText, AnIdentifierIsEscaped) {
    EXPECT_EQ(json(make_quote("a\"b\\\t", 1)).substr(0, 34), "{\"inst_no\":0,\"inst_id\":\"a\\\"b\\\\?\",\"");
}

TEST(JsonText, AFlagByteOtherThanOneIsStillTrue) {
    KovaShfeMdType quote = make_quote("a", 1);
    const unsigned char odd = 0x80;
    std::memcpy(reinterpret_cast<unsigned char*>(&quote) + 172, &odd, 1);
    EXPECT_NE(json(quote).find("\"last_tick_flag\":true"), std::string::npos);
}

TEST(QuoteText, TheLongestValuesFitTheRoom) {
    KovaShfeMdType quote = make_quote(R"("""""""""""""""")", 4294967295U, std::numeric_limits<int32_t>::min());
    quote.turnover = quote.open_interest = quote.bid_amount = quote.ask_amount =
        std::numeric_limits<int64_t>::min();
    quote.bid1_px = quote.bid2_px = quote.bid3_px = quote.bid4_px = quote.bid5_px = quote.last_px;
    quote.ask1_px = quote.ask2_px = quote.ask3_px = quote.ask4_px = quote.ask5_px = quote.last_px;
    quote.high_price = quote.low_price = quote.last_px;
    quote.bid1_vol = quote.bid2_vol = quote.bid3_vol = quote.bid4_vol = quote.bid5_vol = 4294967295U;
    quote.ask1_vol = quote.ask2_vol = quote.ask3_vol = quote.ask4_vol = quote.ask5_vol = 4294967295U;
    quote.inst_no = quote.update_time = quote.volume = quote.bid_volume = quote.ask_volume = 4294967295U;
    quote.max_inst_no = 4294967295U;
    quote.update_milli_sec = quote.type = 65535;
    quote.reverse[0] = quote.reverse[1] = quote.reverse[2] = 255;
    EXPECT_LT(json(quote).size(), kMaxQuoteText);
    EXPECT_LT(csv(quote).size(), kMaxQuoteText);
    EXPECT_NE(json(quote).find("\"turnover\":-9223372036854775808,"), std::string::npos);
    EXPECT_NE(json(quote).find("\"last_px\":-2147483648,"), std::string::npos);
}

}  // namespace
}  // namespace kova::app
