/**
 * Records for the tests of kova-quotes.
 */
#ifndef KOVA_TESTS_APPS_QUOTES_SAMPLE_H
#define KOVA_TESTS_APPS_QUOTES_SAMPLE_H

#include <cstdint>
#include <cstring>
#include <string_view>

#include "KovaShfeMdApi.h"

namespace kova::app {

/** A record of which only the identifier, the change number and the last price are set. */
inline KovaShfeMdType make_quote(std::string_view id, std::uint32_t change_no, std::int32_t last_px = 0) {
    KovaShfeMdType quote{};
    std::memcpy(quote.inst_id, id.data(), id.size());
    quote.change_no = change_no;
    quote.last_px = last_px;
    return quote;
}

/** A record in which every field has a value of its own. */
inline KovaShfeMdType full_quote() {
    KovaShfeMdType q = make_quote("cu2509", 4711, 7812000);
    q.inst_no = 42;
    q.update_time = 93015;
    q.update_milli_sec = 500;
    q.type = 3;
    q.volume = 12345;
    q.turnover = 4823456789012;
    q.open_interest = 198765;
    q.bid1_px = 7811000;
    q.bid1_vol = 11;
    q.bid2_px = 7810000;
    q.bid2_vol = 12;
    q.bid3_px = 7809000;
    q.bid3_vol = 13;
    q.bid4_px = 7808000;
    q.bid4_vol = 14;
    q.bid5_px = 7807000;
    q.bid5_vol = 15;
    q.ask1_px = 7813000;
    q.ask1_vol = 21;
    q.ask2_px = 7814000;
    q.ask2_vol = 22;
    q.ask3_px = 7815000;
    q.ask3_vol = 23;
    q.ask4_px = 7816000;
    q.ask4_vol = 24;
    q.ask5_px = 7817000;
    q.ask5_vol = 25;
    q.bid_volume = 365;
    q.bid_amount = -2850000001;
    q.ask_volume = 415;
    q.ask_amount = 3240000002;
    q.high_price = 7899000;
    q.low_price = -7701000;
    q.max_inst_no = 11999;
    q.last_tick_flag = true;
    q.reverse[0] = 1;
    q.reverse[1] = 2;
    q.reverse[2] = 255;
    return q;
}

}  // namespace kova::app

#endif  // KOVA_TESTS_APPS_QUOTES_SAMPLE_H
