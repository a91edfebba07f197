/**
 * Messages of the snapshot stream, byte by byte: every number is put where the exchange puts it, so that the
 * library's own structures are not what they are tested with.
 *
 *     const std::vector<std::uint8_t> bytes =
 *         MdqpMessage(0x11).snap(1000, 1).inst_info({.inst_id = "cu2401", .inst_no = 3}).bytes();
 */
#ifndef KOVA_TESTS_SUPPORT_MDQP_MESSAGE_H
#define KOVA_TESTS_SUPPORT_MDQP_MESSAGE_H

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>
#include <vector>

namespace kova::test {

using Bytes = std::vector<std::uint8_t>;

/** Appends a number, lowest byte first. The type is named where it is called: it is the width on the wire. */
template <std::integral Number>
void put(Bytes& bytes, std::type_identity_t<Number> value) {
    const auto bits = static_cast<std::make_unsigned_t<Number>>(value);
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
        bytes.push_back(static_cast<std::uint8_t>(bits >> (8 * i)));
    }
}

template <std::same_as<double> Number>
void put(Bytes& bytes, double value) {
    put<std::uint64_t>(bytes, std::bit_cast<std::uint64_t>(value));
}

/** Appends a text of a fixed width: cut to it, or filled up with NULs. */
inline void put_text(Bytes& bytes, std::string_view text, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i) {
        bytes.push_back(i < text.size() ? static_cast<std::uint8_t>(text[i]) : 0);
    }
}

/** What of an instrument's description goes into its row. */
struct InstInfoField {
    std::string_view inst_id = {};
    std::int32_t volume_multiple = 0;
    double price_tick = 0;
    double codec_price = 0;
    std::int32_t inst_no = 0;
};

/** Body of field 0x0101, 112 bytes. What no row keeps has values that no test expects. */
inline Bytes inst_info_body(const InstInfoField& field) {
    Bytes body;
    put_text(body, field.inst_id, 31);
    put_text(body, "an_underlying_instrument_of_31!", 31);
    put<char>(body, '7');        // product_class
    put<double>(body, 77001.5);  // strike_price
    put<char>(body, '8');        // options_type
    put<std::int32_t>(body, field.volume_multiple);
    put<double>(body, 77002.5);       // underlying_multiple
    put<std::int32_t>(body, 770035);  // is_trading
    put_text(body, "CNY", 4);
    put<double>(body, field.price_tick);
    put<double>(body, field.codec_price);
    put<std::int32_t>(body, field.inst_no);
    return body;
}

/** What of an instrument's trading goes into its row. */
struct DealInfoField {
    std::int32_t inst_no = 0;
    double last_price = 0;
    std::int32_t volume = 0;
    double turnover = 0;
    double open_interest = 0;
    double highest_price = 0;
    double lowest_price = 0;
    double upper_limit_price = 0;
    double lower_limit_price = 0;
    std::string_view action_day = {};
    std::int32_t update_mill_sec = 0;
    std::int32_t change_no = 0;
};

/** Body of field 0x0102, 154 bytes. */
inline Bytes deal_info_body(const DealInfoField& field) {
    Bytes body;
    put<std::int32_t>(body, field.inst_no);
    put<double>(body, field.last_price);
    put<std::int32_t>(body, field.volume);
    put<double>(body, field.turnover);
    put<double>(body, field.open_interest);
    put<double>(body, field.highest_price);
    put<double>(body, field.lowest_price);
    put<double>(body, 88001.5);  // open_price
    put<double>(body, 88002.5);  // close_price
    put<double>(body, 88003.5);  // settlement_price
    put<double>(body, field.upper_limit_price);
    put<double>(body, field.lower_limit_price);
    put<double>(body, 88004.5);  // pre_settlement_price
    put<double>(body, 88005.5);  // pre_close_price
    put<double>(body, 88006.5);  // pre_open_interest
    put<double>(body, 88007.5);  // pre_delta
    put<double>(body, 88008.5);  // curr_delta
    put_text(body, field.action_day, 9);
    put_text(body, "21:34:56", 9);  // update_time
    put<std::int32_t>(body, field.update_mill_sec);
    put<std::int32_t>(body, field.change_no);
    return body;
}

/** One level of a book. */
struct PriceDetailField {
    std::int32_t inst_no = 0;
    char direction = '0';
    double price = 0;
    std::int32_t volume = 0;
};

/** Body of field 0x0103, 17 bytes. */
inline Bytes price_detail_body(const PriceDetailField& field) {
    Bytes body;
    put<std::int32_t>(body, field.inst_no);
    put<char>(body, field.direction);
    put<double>(body, field.price);
    put<std::int32_t>(body, field.volume);
    return body;
}

/** All orders of an instrument. */
struct OrderStatisticsField {
    std::int32_t inst_no = 0;
    std::int32_t bid_volume = 0;
    double bid_amount = 0;
    std::int32_t ask_volume = 0;
    double ask_amount = 0;
};

/** Body of field 0x0104, 28 bytes. */
inline Bytes order_statistics_body(const OrderStatisticsField& field) {
    Bytes body;
    put<std::int32_t>(body, field.inst_no);
    put<std::int32_t>(body, field.bid_volume);
    put<double>(body, field.bid_amount);
    put<std::int32_t>(body, field.ask_volume);
    put<double>(body, field.ask_amount);
    return body;
}

/** A message under construction. */
class MdqpMessage {
 public:
    /** @param flag 0x11 begins a snapshot, 0x01 ends one. */
    explicit MdqpMessage(std::uint8_t flag = 0) : flag_(flag) {}

    MdqpMessage& inst_info(const InstInfoField& values) { return field(0x0101, inst_info_body(values)); }
    MdqpMessage& deal_info(const DealInfoField& values) { return field(0x0102, deal_info_body(values)); }
    MdqpMessage& price_detail(const PriceDetailField& values) {
        return field(0x0103, price_detail_body(values));
    }
    MdqpMessage& bid(std::int32_t inst_no, double price, std::int32_t volume) {
        return price_detail({.inst_no = inst_no, .direction = '0', .price = price, .volume = volume});
    }
    MdqpMessage& ask(std::int32_t inst_no, double price, std::int32_t volume) {
        return price_detail({.inst_no = inst_no, .direction = '1', .price = price, .volume = volume});
    }
    MdqpMessage& order_statistics(const OrderStatisticsField& values) {
        return field(0x0104, order_statistics_body(values));
    }
    MdqpMessage& snap(std::int16_t topic_id, std::int32_t snap_no) {
        Bytes body;
        put<std::int16_t>(body, topic_id);
        put<std::int32_t>(body, snap_no);
        return field(0x1001, body);
    }
    MdqpMessage& packet_no(std::int32_t number) {
        Bytes body;
        put<std::int32_t>(body, number);
        return field(0x1004, body);
    }

    /** A field as it should be. */
    MdqpMessage& field(std::uint16_t field_id, const Bytes& body) {
        return field_of_size(field_id, static_cast<std::uint16_t>(body.size()), body);
    }
    /** A field whose size is whatever it says. */
    MdqpMessage& field_of_size(std::uint16_t field_id, std::uint16_t field_size, const Bytes& body) {
        put<std::uint16_t>(body_, field_id);
        put<std::uint16_t>(body_, field_size);
        return raw(body);
    }
    /** Bytes that are no field. */
    MdqpMessage& raw(const Bytes& bytes) {
        body_.insert(body_.end(), bytes.begin(), bytes.end());
        return *this;
    }
    /** A field that means nothing: what begins in the last eight bytes of a body is not looked at. */
    MdqpMessage& tail() { return field(0x1002, Bytes(5)); }

    MdqpMessage& type_id(std::int8_t value) {
        type_id_ = value;
        return *this;
    }
    /** A length other than that of the body. */
    MdqpMessage& length(std::uint16_t value) {
        length_ = value;
        return *this;
    }

    /** Header and body. */
    [[nodiscard]] Bytes bytes() const {
        Bytes message;
        put<std::uint8_t>(message, flag_);
        put<std::int8_t>(message, type_id_);
        put<std::uint16_t>(message, length_.value_or(static_cast<std::uint16_t>(body_.size())));
        put<std::int32_t>(message, 0x66778899);  // request_id
        message.insert(message.end(), body_.begin(), body_.end());
        return message;
    }

 private:
    std::uint8_t flag_;
    std::int8_t type_id_ = 0x32;
    std::optional<std::uint16_t> length_;
    Bytes body_;
};

}  // namespace kova::test

#endif  // KOVA_TESTS_SUPPORT_MDQP_MESSAGE_H
