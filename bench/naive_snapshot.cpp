#include "bench/naive_snapshot.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/tcp.h>

#include <algorithm>
#include <cfloat>
#include <cstdlib>
#include <cstring>

#include "bench/snapshot_stream.h"
#include "wire/DmaMessage.h"

namespace kova::bench {

namespace {

constexpr std::size_t kWorkBuffer = 2048;
constexpr std::size_t kEthernetHeader = 14;
constexpr std::size_t kPseudoHeader = 12;
constexpr std::size_t kCheckOffset = 16;  // of the checksum, in the TCP header

int to_cents(double price) {
    return static_cast<int>(price * 100.0 + 0.5);
}
int to_cents_or_none(double price) {
    return price >= DBL_MAX ? 0 : to_cents(price);
}

// Whether the segment's checksum is right.
bool is_sound(const ip& ip_header, const std::uint8_t* tcp, std::size_t tcp_length, CheckSum check_sum) {
    std::uint8_t buffer[kWorkBuffer];
    std::memset(buffer, 0, sizeof buffer);
    if (tcp_length > sizeof buffer - kPseudoHeader) {
        return false;
    }
    std::memcpy(buffer, &ip_header.ip_src, 4);
    std::memcpy(buffer + 4, &ip_header.ip_dst, 4);
    buffer[9] = ip_header.ip_p;
    const std::uint16_t length = htons(static_cast<std::uint16_t>(tcp_length));
    std::memcpy(buffer + 10, &length, sizeof length);
    std::memcpy(buffer + kPseudoHeader, tcp, tcp_length);
    std::uint16_t expected = 0;
    std::memcpy(&expected, tcp + kCheckOffset, sizeof expected);
    std::memset(buffer + kPseudoHeader + kCheckOffset, 0, sizeof expected);
    return check_sum(buffer, kPseudoHeader + tcp_length) == expected;
}

template <typename Body>
Body copy_of(const std::uint8_t* body) {
    Body copy;
    std::memcpy(&copy, body, sizeof copy);
    return copy;
}

void clear_levels(SInstTableType& row) {
    row.bid1_price = row.bid2_price = row.bid3_price = row.bid4_price = row.bid5_price = 0;
    row.bid1_vol = row.bid2_vol = row.bid3_vol = row.bid4_vol = row.bid5_vol = 0;
    row.ask1_price = row.ask2_price = row.ask3_price = row.ask4_price = row.ask5_price = 0;
    row.ask1_vol = row.ask2_vol = row.ask3_vol = row.ask4_vol = row.ask5_vol = 0;
}

void put_bid(SInstTableType& row, int price, std::uint32_t volume) {
    if (row.bid1_price <= 0 || row.bid1_price <= price) {
        row.bid1_price = price;
        row.bid1_vol = volume;
    } else if (row.bid2_price <= 0 || row.bid2_price <= price) {
        row.bid2_price = price;
        row.bid2_vol = volume;
    } else if (row.bid3_price <= 0 || row.bid3_price <= price) {
        row.bid3_price = price;
        row.bid3_vol = volume;
    } else if (row.bid4_price <= 0 || row.bid4_price <= price) {
        row.bid4_price = price;
        row.bid4_vol = volume;
    } else {
        row.bid5_price = price;
        row.bid5_vol = volume;
    }
}

void put_ask(SInstTableType& row, int price, std::uint32_t volume) {
    if (row.ask1_price <= 0 || row.ask1_price >= price) {
        row.ask1_price = price;
        row.ask1_vol = volume;
    } else if (row.ask2_price <= 0 || row.ask2_price >= price) {
        row.ask2_price = price;
        row.ask2_vol = volume;
    } else if (row.ask3_price <= 0 || row.ask3_price >= price) {
        row.ask3_price = price;
        row.ask3_vol = volume;
    } else if (row.ask4_price <= 0 || row.ask4_price >= price) {
        row.ask4_price = price;
        row.ask4_vol = volume;
    } else {
        row.ask5_price = price;
        row.ask5_vol = volume;
    }
}

}  // namespace

void NaiveSnapshot::take(const std::uint8_t* message, std::uint32_t size) {
    std::uint8_t packet[kWorkBuffer];
    std::memset(packet, 0, sizeof packet);
    std::memcpy(packet, message, std::min<std::size_t>(size, sizeof packet));
    if (copy_of<U50DmaHeader>(packet).dma_type != DMA_TCP) {
        return;
    }
    const std::uint8_t* frame = packet + DMA_TCP_FRAME_OFFSET;
    const ip ip_header = copy_of<ip>(frame + kEthernetHeader);
    if (ip_header.ip_p != IPPROTO_TCP) {
        return;
    }
    const std::uint8_t* tcp = frame + kEthernetHeader + 4 * ip_header.ip_hl;
    const auto tcp_header = copy_of<tcphdr>(tcp);
    const std::size_t tcp_length = ntohs(ip_header.ip_len) - 4U * ip_header.ip_hl;
    if (ntohs(tcp_header.dest) != kSnapshotPort || !is_sound(ip_header, tcp, tcp_length, check_sum_)) {
        return;
    }
    const std::uint32_t tcp_header_size = 4U * tcp_header.doff;
    take_payload(tcp + tcp_header_size, static_cast<std::uint32_t>(tcp_length) - tcp_header_size);
}

void NaiveSnapshot::take_payload(const std::uint8_t* payload, std::uint32_t size) {
    std::memcpy(fragment_.data() + fragment_size_, payload, size);
    fragment_size_ += size;
    std::size_t parsed = 0;
    while (fragment_size_ - parsed >= sizeof(mdqp_t)) {
        const auto header = copy_of<mdqp_t>(fragment_.data() + parsed);
        const std::size_t length = sizeof header + header.length;
        if (fragment_size_ - parsed < length) {
            break;
        }
        parse(fragment_.data() + parsed);
        parsed += length;
    }
    std::memmove(fragment_.data(), fragment_.data() + parsed, fragment_size_ - parsed);
    fragment_size_ -= parsed;
}

void NaiveSnapshot::parse(const std::uint8_t* message) {
    const auto header = copy_of<mdqp_t>(message);
    std::uint16_t field_id_before = 0;
    for (std::size_t offset = sizeof header; offset < header.length;) {
        const auto field = copy_of<field_t>(message + offset);
        parse_field(field, message + offset + sizeof field, field.field_id != field_id_before);
        field_id_before = field.field_id;
        offset += sizeof field + field.field_size;
    }
    is_finished_ = is_finished_ || header.flag == MDQP_FLAG_LAST;
}

void NaiveSnapshot::parse_field(const field_t& field, const std::uint8_t* body, bool is_new_run) {
    switch (field.field_id) {
        case MDQP_FIELD_INST_INFO:
            take_inst_info(copy_of<inst_info_t>(body));
            break;
        case MDQP_FIELD_DEAL_INFO:
            take_deal_info(copy_of<deal_info_t>(body));
            break;
        case MDQP_FIELD_PRICE_DETAIL:
            take_price_detail(copy_of<price_detail_t>(body), is_new_run);
            break;
        case MDQP_FIELD_ORDER_STATISTICS:
            take_order_statistics(copy_of<order_statistics_info_t>(body));
            break;
        default:
            break;
    }
}

void NaiveSnapshot::take_inst_info(const inst_info_t& info) {
    SInstTableType& row = rows_.at(static_cast<std::size_t>(info.inst_no));
    count_ = std::max(count_, static_cast<std::uint64_t>(info.inst_no) + 1);
    row.price_tick = to_cents(info.price_tick);
    row.codec_price = to_cents(info.codec_price);
    row.vol_multiple = static_cast<std::uint32_t>(info.volume_multiple);
    std::memcpy(row.inst_id, info.inst_id, sizeof row.inst_id - 1);
}

void NaiveSnapshot::take_deal_info(const deal_info_t& deal) {
    SInstTableType& row = rows_.at(static_cast<std::size_t>(deal.inst_no));
    trading_day_ = std::max(trading_day_, std::atoi(deal.action_day));
    row.last_price = to_cents_or_none(deal.last_price);
    row.upper_limit_price = to_cents_or_none(deal.upper_limit_price);
    row.lower_limit_price = to_cents_or_none(deal.lower_limit_price);
    row.high_price = to_cents_or_none(deal.highest_price);
    row.low_price = to_cents_or_none(deal.lowest_price);
    row.turnover = deal.turnover >= DBL_MAX ? 0 : static_cast<std::uint64_t>(deal.turnover * 100.0 + 0.5);
    row.open_interest = static_cast<std::uint64_t>(deal.open_interest + 0.5);
    row.change_no = static_cast<std::uint32_t>(deal.change_no);
    row.update_mill_sec = static_cast<std::uint32_t>(deal.update_mill_sec);
    row.volume = static_cast<std::uint32_t>(deal.volume);
}

void NaiveSnapshot::take_price_detail(const price_detail_t& detail, bool is_new_run) {
    SInstTableType& row = rows_.at(static_cast<std::size_t>(detail.inst_no));
    const int price = detail.price == DBL_MAX ? 0 : to_cents(detail.price);
    if (is_new_run) {
        clear_levels(row);
    }
    if (detail.direction == MDQP_DIRECTION_BID) {
        put_bid(row, price, static_cast<std::uint32_t>(detail.volume));
    } else if (detail.direction == MDQP_DIRECTION_ASK) {
        put_ask(row, price, static_cast<std::uint32_t>(detail.volume));
    }
}

void NaiveSnapshot::take_order_statistics(const order_statistics_info_t& statistics) {
    SInstTableType& row = rows_.at(static_cast<std::size_t>(statistics.inst_no));
    row.bid_volume = static_cast<std::uint32_t>(statistics.bid_volume);
    row.ask_volume = static_cast<std::uint32_t>(statistics.ask_volume);
    row.bid_amount =
        statistics.bid_amount >= DBL_MAX ? 0 : static_cast<std::int64_t>(statistics.bid_amount * 100.0 + 0.5);
    row.ask_amount =
        statistics.ask_amount >= DBL_MAX ? 0 : static_cast<std::int64_t>(statistics.ask_amount * 100.0 + 0.5);
}

void NaiveSnapshot::reset() {
    std::memset(rows_.data(), 0, rows_.size() * sizeof rows_[0]);
    fragment_size_ = 0;
    count_ = 0;
    trading_day_ = 0;
    is_finished_ = false;
}

}  // namespace kova::bench
