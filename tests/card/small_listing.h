/**
 * What a bring-up makes of the snapshot that SnapshotFrames sends, told by hand: rows, subscriptions, the
 * instrument file; and a configuration that goes with it.
 */
#ifndef KOVA_TESTS_CARD_SMALL_LISTING_H
#define KOVA_TESTS_CARD_SMALL_LISTING_H

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>

#include "sim/card/card_memory.h"
#include "wire/InstRow.h"

namespace kova::test {

/** Channel 0 gets copper, channel 5 one crude oil contract. */
inline constexpr std::string_view kSmallConfig =
    "log_level = 3\n"
    "shfe2ps = enabled\n"
    "ine2ps = enabled\n"
    "[channel0]\n"
    "insts = cu\n"
    "[channel5]\n"
    "insts = sc2606";

inline constexpr std::string_view kSmallInstrumentFile =
    "contract_no,contract_name,change_no,open_interest,last_price,turnover,volume,price_tick,codec_price,"
    "vol_multiple,upper_limit_price,lower_limit_price\n"
    "0,cu2606,42,77,10000,123450,12,1000,100,5,11000,9000\n"
    "1,al2607,0,0,0,0,0,500,100,5,0,0\n"
    "0,sc2606,0,0,0,0,0,10,100,1000,0,0\n";

inline SInstTableType small_row(const char* id, std::int32_t tick, std::uint32_t multiple) {
    SInstTableType row{};
    row.price_tick = tick;
    row.codec_price = 100;
    row.vol_multiple = multiple;
    std::strncpy(row.inst_id, id, sizeof row.inst_id - 1);
    return row;
}

/** Subscribed by channel 0. */
inline SInstTableType row_of_cu2606() {
    SInstTableType row = small_row("cu2606", 1000, 5);
    row.config = 0x80000001;
    row.change_no = 42;
    row.update_mill_sec = 500;
    row.bid1_price = 9900;
    row.bid1_vol = 3;
    row.ask1_price = 10100;
    row.ask1_vol = 4;
    row.open_interest = 77;
    row.turnover = 123450;
    row.volume = 12;
    row.last_price = 10000;
    row.upper_limit_price = 11000;
    row.lower_limit_price = 9000;
    row.bid_volume = 7;
    row.bid_amount = 7050;
    row.ask_volume = 8;
    row.ask_amount = 8025;
    row.high_price = 10200;
    row.low_price = 9800;
    return row;
}

inline SInstTableType row_of_al2607() {
    return small_row("al2607", 500, 5);
}

/** Subscribed by channel 5. */
inline SInstTableType row_of_sc2606() {
    SInstTableType row = small_row("sc2606", 10, 1000);
    row.config = 0x80000020;
    return row;
}

/** In which of its rows a table differs from these and empty ones behind them; empty when in none. */
inline std::string wrong_rows(sim::CardMemory& memory, EMDQPDataType feed,
                              std::initializer_list<SInstTableType> expected) {
    const SInstTableType* const rows = sim::table_rows(memory.tables, feed);
    const SInstTableType empty{};
    for (std::uint32_t i = 0; i < sim::table_row_count(feed); ++i) {
        const SInstTableType& row = i < expected.size() ? *(expected.begin() + i) : empty;
        if (std::memcmp(&rows[i], &row, sizeof row) != 0) {
            return "table " + std::to_string(feed) + ", row " + std::to_string(i) + "; ";
        }
    }
    return "";
}

/** The same for all tables and the whole listing. */
inline std::string wrong_rows_of_small_listing(sim::CardMemory& memory) {
    return wrong_rows(memory, SHFE_2PS, {row_of_cu2606(), row_of_al2607()}) + wrong_rows(memory, SHFE_4PS, {}) +
           wrong_rows(memory, INE_2PS, {row_of_sc2606()}) + wrong_rows(memory, INE_4PS, {});
}

}  // namespace kova::test

#endif  // KOVA_TESTS_CARD_SMALL_LISTING_H
