/**
 * The messages of the exchanges' snapshot stream. The exchange defines every byte; little-endian, packed,
 * doubles are IEEE 754 binary64.
 *
 *     offset 0     1        2       4           8
 *            flag  type_id  length  request_id  body, `length` bytes: a run of fields
 *
 *     offset 0         2           4
 *            field_id  field_size  field body, `field_size` bytes
 *
 * A snapshot of a feed is a run of messages: the first has flag 0x11 and carries the snapshot field, the last
 * has flag 0x01. A price that the exchange does not have is the largest finite double.
 */
#ifndef KOVA_PUBLIC_WIRE_MDQP_H
#define KOVA_PUBLIC_WIRE_MDQP_H

#include <cstddef>
#include <cstdint>

/** `flag` of the messages of a snapshot before the last. */
constexpr uint8_t MDQP_FLAG_FIRST = 0x11;
/** `flag` of the message that ends a snapshot. */
constexpr uint8_t MDQP_FLAG_LAST = 0x01;
/** `type_id` of every message. */
constexpr int8_t MDQP_TYPE_ID = 0x32;

/** What a field's body is. */
enum EMdqpFieldId : uint16_t {
    MDQP_FIELD_0031 = 0x0031,
    MDQP_FIELD_0032 = 0x0032,
    MDQP_FIELD_INST_INFO = 0x0101,        /**< inst_info_t */
    MDQP_FIELD_DEAL_INFO = 0x0102,        /**< deal_info_t */
    MDQP_FIELD_PRICE_DETAIL = 0x0103,     /**< price_detail_t */
    MDQP_FIELD_ORDER_STATISTICS = 0x0104, /**< order_statistics_info_t */
    MDQP_FIELD_SNAP = 0x1001,             /**< snap_t */
    MDQP_FIELD_1002 = 0x1002,
    MDQP_FIELD_1003 = 0x1003,
    MDQP_FIELD_PACKET_NO = 0x1004, /**< packet_no_t */
};

/** `direction` of a price level. */
constexpr char MDQP_DIRECTION_BID = '0';
constexpr char MDQP_DIRECTION_ASK = '1';

#pragma pack(push, 1)

/** Header of a message, which is `length` + 8 bytes long. */
struct mdqp_t {
    uint8_t flag; /**< MDQP_FLAG_FIRST or MDQP_FLAG_LAST */
    int8_t type_id;
    uint16_t length;    /**< bytes behind this header */
    int32_t request_id; /**< not used */
};

/** Header of a field. */
struct field_t {
    uint16_t field_id;   /**< EMdqpFieldId */
    uint16_t field_size; /**< bytes behind this header */
};

/**
 * Which snapshot this is.
 *
 *     offset 0         2
 *            topic_id  snap_no
 */
struct snap_t {
    int16_t topic_id; /**< the feed's */
    int32_t snap_no;
};

/** Packet of the incremental stream that the snapshot belongs to. */
struct packet_no_t {
    int32_t packet_no;
};

/**
 * What does not change of an instrument.
 *
 *     offset  0            31                      62             63            71            72
 *             inst_id[31]  underlying_inst_id[31]  product_class  strike_price  options_type  volume_multiple
 *     offset 76                   84          88              92          100          108
 *            underlying_multiple  is_trading  currency_id[4]  price_tick  codec_price  inst_no
 */
struct inst_info_t {
    char inst_id[31]; /**< NUL-padded */
    char underlying_inst_id[31];
    char product_class;
    double strike_price;
    char options_type;
    int32_t volume_multiple;
    double underlying_multiple;
    int32_t is_trading;
    char currency_id[4];
    double price_tick;
    double codec_price;
    int32_t inst_no; /**< row in the feed's table */
};

/**
 * What has been traded of an instrument, and its limits.
 *
 *     offset  0        4           12      16        24             32             40            48
 *             inst_no  last_price  volume  turnover  open_interest  highest_price  lowest_price  open_price
 *     offset 56           64                72                 80                 88
 *            close_price  settlement_price  upper_limit_price  lower_limit_price  pre_settlement_price
 *     offset 96               104                112        120         128            137
 *            pre_close_price  pre_open_interest  pre_delta  curr_delta  action_day[9]  update_time[9]
 *     offset 146              150
 *            update_mill_sec  change_no
 */
struct deal_info_t {
    int32_t inst_no;
    double last_price;
    int32_t volume;
    double turnover;
    double open_interest;
    double highest_price;
    double lowest_price;
    double open_price;
    double close_price;
    double settlement_price;
    double upper_limit_price;
    double lower_limit_price;
    double pre_settlement_price;
    double pre_close_price;
    double pre_open_interest;
    double pre_delta;
    double curr_delta;
    char action_day[9];  /**< eight digits and a NUL */
    char update_time[9]; /**< hh:mm:ss and a NUL */
    int32_t update_mill_sec;
    int32_t change_no;
};

/**
 * One level of an instrument's book; a side's levels come best first.
 *
 *     offset 0        4          5      13
 *            inst_no  direction  price  volume
 */
struct price_detail_t {
    int32_t inst_no;
    char direction; /**< MDQP_DIRECTION_BID or MDQP_DIRECTION_ASK */
    double price;
    int32_t volume;
};

/**
 * All orders of an instrument.
 *
 *     offset 0        4           8           16          20
 *            inst_no  bid_volume  bid_amount  ask_volume  ask_amount
 */
struct order_statistics_info_t {
    int32_t inst_no;
    int32_t bid_volume;
    double bid_amount;
    int32_t ask_volume;
    double ask_amount;
};

#pragma pack(pop)

static_assert(sizeof(mdqp_t) == 8, "fixed by the exchange");
static_assert(offsetof(mdqp_t, type_id) == 1, "fixed by the exchange");
static_assert(offsetof(mdqp_t, length) == 2, "fixed by the exchange");
static_assert(offsetof(mdqp_t, request_id) == 4, "fixed by the exchange");

static_assert(sizeof(field_t) == 4, "fixed by the exchange");
static_assert(offsetof(field_t, field_size) == 2, "fixed by the exchange");

static_assert(sizeof(snap_t) == 6, "fixed by the exchange");
static_assert(offsetof(snap_t, snap_no) == 2, "fixed by the exchange");

static_assert(sizeof(packet_no_t) == 4, "fixed by the exchange");

static_assert(sizeof(inst_info_t) == 112, "fixed by the exchange");
static_assert(offsetof(inst_info_t, underlying_inst_id) == 31, "fixed by the exchange");
static_assert(offsetof(inst_info_t, product_class) == 62, "fixed by the exchange");
static_assert(offsetof(inst_info_t, strike_price) == 63, "fixed by the exchange");
static_assert(offsetof(inst_info_t, options_type) == 71, "fixed by the exchange");
static_assert(offsetof(inst_info_t, volume_multiple) == 72, "fixed by the exchange");
static_assert(offsetof(inst_info_t, underlying_multiple) == 76, "fixed by the exchange");
static_assert(offsetof(inst_info_t, is_trading) == 84, "fixed by the exchange");
static_assert(offsetof(inst_info_t, currency_id) == 88, "fixed by the exchange");
static_assert(offsetof(inst_info_t, price_tick) == 92, "fixed by the exchange");
static_assert(offsetof(inst_info_t, codec_price) == 100, "fixed by the exchange");
static_assert(offsetof(inst_info_t, inst_no) == 108, "fixed by the exchange");

static_assert(sizeof(deal_info_t) == 154, "fixed by the exchange");
static_assert(offsetof(deal_info_t, last_price) == 4, "fixed by the exchange");
static_assert(offsetof(deal_info_t, volume) == 12, "fixed by the exchange");
static_assert(offsetof(deal_info_t, turnover) == 16, "fixed by the exchange");
static_assert(offsetof(deal_info_t, open_interest) == 24, "fixed by the exchange");
static_assert(offsetof(deal_info_t, highest_price) == 32, "fixed by the exchange");
static_assert(offsetof(deal_info_t, lowest_price) == 40, "fixed by the exchange");
static_assert(offsetof(deal_info_t, open_price) == 48, "fixed by the exchange");
static_assert(offsetof(deal_info_t, close_price) == 56, "fixed by the exchange");
static_assert(offsetof(deal_info_t, settlement_price) == 64, "fixed by the exchange");
static_assert(offsetof(deal_info_t, upper_limit_price) == 72, "fixed by the exchange");
static_assert(offsetof(deal_info_t, lower_limit_price) == 80, "fixed by the exchange");
static_assert(offsetof(deal_info_t, pre_settlement_price) == 88, "fixed by the exchange");
static_assert(offsetof(deal_info_t, pre_close_price) == 96, "fixed by the exchange");
static_assert(offsetof(deal_info_t, pre_open_interest) == 104, "fixed by the exchange");
static_assert(offsetof(deal_info_t, pre_delta) == 112, "fixed by the exchange");
static_assert(offsetof(deal_info_t, curr_delta) == 120, "fixed by the exchange");
static_assert(offsetof(deal_info_t, action_day) == 128, "fixed by the exchange");
static_assert(offsetof(deal_info_t, update_time) == 137, "fixed by the exchange");
static_assert(offsetof(deal_info_t, update_mill_sec) == 146, "fixed by the exchange");
static_assert(offsetof(deal_info_t, change_no) == 150, "fixed by the exchange");

static_assert(sizeof(price_detail_t) == 17, "fixed by the exchange");
static_assert(offsetof(price_detail_t, direction) == 4, "fixed by the exchange");
static_assert(offsetof(price_detail_t, price) == 5, "fixed by the exchange");
static_assert(offsetof(price_detail_t, volume) == 13, "fixed by the exchange");

static_assert(sizeof(order_statistics_info_t) == 28, "fixed by the exchange");
static_assert(offsetof(order_statistics_info_t, bid_volume) == 4, "fixed by the exchange");
static_assert(offsetof(order_statistics_info_t, bid_amount) == 8, "fixed by the exchange");
static_assert(offsetof(order_statistics_info_t, ask_volume) == 16, "fixed by the exchange");
static_assert(offsetof(order_statistics_info_t, ask_amount) == 20, "fixed by the exchange");

#endif  // KOVA_PUBLIC_WIRE_MDQP_H
