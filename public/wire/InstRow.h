/**
 * One instrument's row: the format of the card's contract tables, which the host keeps a copy of.
 *
 * 256 bytes, 64 little-endian words, packed. The host writes and reads it word by word through the table
 * registers, so an offset below divided by four is the number of the word in the card:
 *
 *     word 0       1           2            3             4          5                6
 *          config  price_tick  codec_price  vol_multiple  change_no  update_mill_sec  updatetime
 *     word 7 .. 16                   17 .. 26
 *          bid5 .. bid1 (price,vol)  ask5 .. ask1 (price,vol)
 *     word 27,28          29,30     31      32          33 .. 36  37                 38
 *          open_interest  turnover  volume  last_price  inst_id   upper_limit_price  lower_limit_price
 *     word 39          40,41       42          43,44       45          46         47 .. 63
 *          bid_volume  bid_amount  ask_volume  ask_amount  high_price  low_price  reserved
 */
#ifndef KOVA_PUBLIC_WIRE_INST_ROW_H
#define KOVA_PUBLIC_WIRE_INST_ROW_H

#include <cstddef>
#include <cstdint>

#pragma pack(push, 1)
struct SInstTableType {
    uint32_t config;       /**< bit c: channel c receives it; bit 30: TAS; bit 31: subscribed by any channel */
    int32_t price_tick;    /**< hundredths, as all prices */
    int32_t codec_price;   /**< the exchange's codec price */
    uint32_t vol_multiple; /**< lots to units */
    uint32_t change_no;
    uint32_t update_mill_sec;
    uint32_t updatetime;
    int32_t bid5_price;
    uint32_t bid5_vol;
    int32_t bid4_price;
    uint32_t bid4_vol;
    int32_t bid3_price;
    uint32_t bid3_vol;
    int32_t bid2_price;
    uint32_t bid2_vol;
    int32_t bid1_price;
    uint32_t bid1_vol;
    int32_t ask5_price;
    uint32_t ask5_vol;
    int32_t ask4_price;
    uint32_t ask4_vol;
    int32_t ask3_price;
    uint32_t ask3_vol;
    int32_t ask2_price;
    uint32_t ask2_vol;
    int32_t ask1_price;
    uint32_t ask1_vol;
    uint64_t open_interest;
    uint64_t turnover;
    uint32_t volume;
    int32_t last_price;
    char inst_id[16]; /**< NUL-terminated */
    int32_t upper_limit_price;
    int32_t lower_limit_price;
    uint32_t bid_volume;
    int64_t bid_amount;
    uint32_t ask_volume;
    int64_t ask_amount;
    int32_t high_price;
    int32_t low_price;
    int32_t reserved[17]; /**< zero */
};
#pragma pack(pop)

static_assert(sizeof(SInstTableType) == 256, "fixed by the card");
static_assert(offsetof(SInstTableType, config) == 0, "fixed by the card");
static_assert(offsetof(SInstTableType, price_tick) == 4, "fixed by the card");
static_assert(offsetof(SInstTableType, codec_price) == 8, "fixed by the card");
static_assert(offsetof(SInstTableType, vol_multiple) == 12, "fixed by the card");
static_assert(offsetof(SInstTableType, change_no) == 16, "fixed by the card");
static_assert(offsetof(SInstTableType, update_mill_sec) == 20, "fixed by the card");
static_assert(offsetof(SInstTableType, updatetime) == 24, "fixed by the card");
static_assert(offsetof(SInstTableType, bid5_price) == 28, "fixed by the card");
static_assert(offsetof(SInstTableType, bid5_vol) == 32, "fixed by the card");
static_assert(offsetof(SInstTableType, bid4_price) == 36, "fixed by the card");
static_assert(offsetof(SInstTableType, bid4_vol) == 40, "fixed by the card");
static_assert(offsetof(SInstTableType, bid3_price) == 44, "fixed by the card");
static_assert(offsetof(SInstTableType, bid3_vol) == 48, "fixed by the card");
static_assert(offsetof(SInstTableType, bid2_price) == 52, "fixed by the card");
static_assert(offsetof(SInstTableType, bid2_vol) == 56, "fixed by the card");
static_assert(offsetof(SInstTableType, bid1_price) == 60, "fixed by the card");
static_assert(offsetof(SInstTableType, bid1_vol) == 64, "fixed by the card");
static_assert(offsetof(SInstTableType, ask5_price) == 68, "fixed by the card");
static_assert(offsetof(SInstTableType, ask5_vol) == 72, "fixed by the card");
static_assert(offsetof(SInstTableType, ask4_price) == 76, "fixed by the card");
static_assert(offsetof(SInstTableType, ask4_vol) == 80, "fixed by the card");
static_assert(offsetof(SInstTableType, ask3_price) == 84, "fixed by the card");
static_assert(offsetof(SInstTableType, ask3_vol) == 88, "fixed by the card");
static_assert(offsetof(SInstTableType, ask2_price) == 92, "fixed by the card");
static_assert(offsetof(SInstTableType, ask2_vol) == 96, "fixed by the card");
static_assert(offsetof(SInstTableType, ask1_price) == 100, "fixed by the card");
static_assert(offsetof(SInstTableType, ask1_vol) == 104, "fixed by the card");
static_assert(offsetof(SInstTableType, open_interest) == 108, "fixed by the card");
static_assert(offsetof(SInstTableType, turnover) == 116, "fixed by the card");
static_assert(offsetof(SInstTableType, volume) == 124, "fixed by the card");
static_assert(offsetof(SInstTableType, last_price) == 128, "fixed by the card");
static_assert(offsetof(SInstTableType, inst_id) == 132, "fixed by the card");
static_assert(offsetof(SInstTableType, upper_limit_price) == 148, "fixed by the card");
static_assert(offsetof(SInstTableType, lower_limit_price) == 152, "fixed by the card");
static_assert(offsetof(SInstTableType, bid_volume) == 156, "fixed by the card");
static_assert(offsetof(SInstTableType, bid_amount) == 160, "fixed by the card");
static_assert(offsetof(SInstTableType, ask_volume) == 168, "fixed by the card");
static_assert(offsetof(SInstTableType, ask_amount) == 172, "fixed by the card");
static_assert(offsetof(SInstTableType, high_price) == 180, "fixed by the card");
static_assert(offsetof(SInstTableType, low_price) == 184, "fixed by the card");
static_assert(offsetof(SInstTableType, reserved) == 188, "fixed by the card");

/** Words of one row. */
constexpr uint32_t INST_ROW_WORDS = 64;

/** Rows of the contract table of a SHFE feed, 2PS and 4PS alike. */
constexpr uint32_t SHFE_TABLE_ROWS = 16384;
/** Rows of the contract table of an INE feed. */
constexpr uint32_t INE_TABLE_ROWS = 4096;

/** Bit of `config`: time-at-settlement instrument. */
constexpr uint32_t INST_CONFIG_TAS = 0x40000000;
/** Bit of `config`: some channel has subscribed the row. */
constexpr uint32_t INST_CONFIG_SUBSCRIBED = 0x80000000;

#endif  // KOVA_PUBLIC_WIRE_INST_ROW_H
