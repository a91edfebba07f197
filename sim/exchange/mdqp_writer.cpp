#include "sim/exchange/mdqp_writer.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "sim/exchange/product.h"

namespace kova::sim {

namespace {

static_assert(std::endian::native == std::endian::little, "messages go out as they lie in memory");

constexpr char kClassFuture = '1';
constexpr char kClassOption = '2';
constexpr char kClassTas = '7';
constexpr char kNoOption = '0';
constexpr char kCall = '1';
constexpr char kPut = '2';

constexpr std::uint32_t kHoursPerDay = 24;
constexpr std::size_t kOpeningFiller = 36;
constexpr std::size_t kClosingFiller = 12;

/** What the exchange calls that many hundredths. */
double from_hundredths(std::int64_t hundredths) {
    return static_cast<double>(hundredths) / 100.0;
}

template <std::size_t N>
void put_text(char (&to)[N], std::string_view text) {
    std::ranges::copy(text.substr(0, N - 1), to);
}

/** Calendar day of a state: a market that stays open past midnight gets into the next one. */
void put_day(char (&to)[9], std::chrono::year_month_day date, std::uint32_t update_time) {
    const std::chrono::days ahead{update_time / 10000 / kHoursPerDay};
    const std::chrono::year_month_day day{std::chrono::sys_days{date} + ahead};
    std::snprintf(to, sizeof to, "%04u%02u%02u", static_cast<unsigned>(int{day.year()}) % 10000U,
                  unsigned{day.month()} % 100U, unsigned{day.day()} % 100U);
}

void put_time(char (&to)[9], std::uint32_t update_time) {
    std::snprintf(to, sizeof to, "%02u:%02u:%02u", update_time / 10000 % kHoursPerDay, update_time / 100 % 100,
                  update_time % 100);
}

inst_info_t info_of(const Listing& listing, const Instrument& instrument) {
    const bool is_option = instrument.kind == InstrumentKind::option;
    const bool is_tas = instrument.kind == InstrumentKind::tas;
    inst_info_t info{};
    put_text(info.inst_id, instrument.id());
    put_text(info.underlying_inst_id, listing.instruments()[instrument.underlying].id());
    info.product_class = is_option ? kClassOption : is_tas ? kClassTas : kClassFuture;
    info.strike_price = is_option ? from_hundredths(instrument.strike) : kNoValue;
    info.options_type = !is_option ? kNoOption : instrument.is_call ? kCall : kPut;
    info.volume_multiple = static_cast<std::int32_t>(instrument.multiplier);
    info.underlying_multiple = 1;
    info.is_trading = 1;
    put_text(info.currency_id, "CNY");
    info.price_tick = from_hundredths(instrument.tick);
    info.codec_price = from_hundredths(instrument.codec_price);
    info.inst_no = static_cast<std::int32_t>(instrument.ref.inst_no);
    return info;
}

deal_info_t deal_of(const Listing& listing, const Instrument& instrument, const KovaShfeMdType& state) {
    const bool is_traded = state.volume > 0;
    const auto traded = [&](std::int32_t price) { return is_traded ? from_hundredths(price) : kNoValue; };
    deal_info_t deal{};
    deal.inst_no = static_cast<std::int32_t>(instrument.ref.inst_no);
    deal.last_price = traded(state.last_px);
    deal.volume = static_cast<std::int32_t>(state.volume);
    deal.turnover = from_hundredths(state.turnover);
    deal.open_interest = static_cast<double>(state.open_interest);
    deal.highest_price = traded(state.high_price);
    deal.lowest_price = traded(state.low_price);
    // Books open with a trade at the previous settlement price.
    deal.open_price = traded(instrument.pre_settlement);
    deal.close_price = kNoValue;
    deal.settlement_price = kNoValue;
    deal.upper_limit_price = from_hundredths(instrument.upper_limit);
    deal.lower_limit_price = from_hundredths(instrument.lower_limit);
    deal.pre_settlement_price = from_hundredths(instrument.pre_settlement);
    deal.pre_close_price = from_hundredths(instrument.pre_settlement);
    deal.pre_open_interest = static_cast<double>(instrument.pre_open_interest);
    deal.pre_delta = kNoValue;
    deal.curr_delta = kNoValue;
    put_day(deal.action_day, listing.options().date, state.update_time);
    put_time(deal.update_time, state.update_time);
    deal.update_mill_sec = state.update_milli_sec;
    deal.change_no = static_cast<std::int32_t>(state.change_no);
    return deal;
}

/** Adds a level that has orders; a price of 0 alone says nothing about that. */
void add_level(InstrumentFields& fields, char direction, std::int32_t price, std::uint32_t volume) {
    if (volume == 0) {
        return;
    }
    fields.level_space[fields.level_count++] = {.inst_no = fields.info.inst_no,
                                                .direction = direction,
                                                .price = from_hundredths(price),
                                                .volume = static_cast<std::int32_t>(volume)};
}

void add_levels(InstrumentFields& fields, const KovaShfeMdType& state) {
    add_level(fields, MDQP_DIRECTION_BID, state.bid1_px, state.bid1_vol);
    add_level(fields, MDQP_DIRECTION_BID, state.bid2_px, state.bid2_vol);
    add_level(fields, MDQP_DIRECTION_BID, state.bid3_px, state.bid3_vol);
    add_level(fields, MDQP_DIRECTION_BID, state.bid4_px, state.bid4_vol);
    add_level(fields, MDQP_DIRECTION_BID, state.bid5_px, state.bid5_vol);
    add_level(fields, MDQP_DIRECTION_ASK, state.ask1_px, state.ask1_vol);
    add_level(fields, MDQP_DIRECTION_ASK, state.ask2_px, state.ask2_vol);
    add_level(fields, MDQP_DIRECTION_ASK, state.ask3_px, state.ask3_vol);
    add_level(fields, MDQP_DIRECTION_ASK, state.ask4_px, state.ask4_vol);
    add_level(fields, MDQP_DIRECTION_ASK, state.ask5_px, state.ask5_vol);
}

}  // namespace

std::size_t InstrumentFields::bytes() const {
    constexpr std::size_t fixed =
        3 * sizeof(field_t) + sizeof(inst_info_t) + sizeof(deal_info_t) + sizeof(order_statistics_info_t);
    return fixed + level_count * (sizeof(field_t) + sizeof(price_detail_t));
}

InstrumentFields fields_of(const Listing& listing, const Instrument& instrument, const KovaShfeMdType& state) {
    InstrumentFields fields;
    fields.info = info_of(listing, instrument);
    fields.deal = deal_of(listing, instrument, state);
    add_levels(fields, state);
    fields.orders = {.inst_no = fields.info.inst_no,
                     .bid_volume = static_cast<std::int32_t>(state.bid_volume),
                     .bid_amount = from_hundredths(state.bid_amount),
                     .ask_volume = static_cast<std::int32_t>(state.ask_volume),
                     .ask_amount = from_hundredths(state.ask_amount)};
    return fields;
}

void MdqpWriter::begin(std::uint8_t flag) {
    begin_ = out_.size();
    const mdqp_t header{.flag = flag, .type_id = MDQP_TYPE_ID, .length = 0, .request_id = 0};
    append(&header, sizeof header);
}

void MdqpWriter::filler(EMdqpFieldId id, std::size_t size) {
    field_header(id, size);
    out_.resize(out_.size() + size);
}

void MdqpWriter::instrument(const InstrumentFields& fields) {
    field(MDQP_FIELD_INST_INFO, fields.info);
    field(MDQP_FIELD_DEAL_INFO, fields.deal);
    for (const price_detail_t& level : fields.levels()) {
        field(MDQP_FIELD_PRICE_DETAIL, level);
    }
    field(MDQP_FIELD_ORDER_STATISTICS, fields.orders);
}

void MdqpWriter::end() {
    const std::size_t length = bytes() - sizeof(mdqp_t);
    if (length > kMostMdqpBody) {
        throw std::length_error("a message of more than 65535 bytes");
    }
    const auto field = static_cast<std::uint16_t>(length);
    std::memcpy(out_.data() + begin_ + offsetof(mdqp_t, length), &field, sizeof field);
}

void MdqpWriter::field_header(EMdqpFieldId id, std::size_t size) {
    const field_t header{.field_id = id, .field_size = static_cast<std::uint16_t>(size)};
    append(&header, sizeof header);
}

void MdqpWriter::append(const void* bytes, std::size_t count) {
    const std::size_t at = out_.size();
    out_.resize(at + count);
    std::memcpy(out_.data() + at, bytes, count);
}

void write_opening(std::vector<std::byte>& out, std::int16_t topic_id, std::int32_t snap_no) {
    MdqpWriter message(out);
    message.begin(MDQP_FLAG_FIRST);
    message.field(MDQP_FIELD_SNAP, snap_t{.topic_id = topic_id, .snap_no = snap_no});
    message.filler(MDQP_FIELD_1002, kOpeningFiller);
    message.end();
}

void write_closing(std::vector<std::byte>& out, std::int32_t packet_no) {
    MdqpWriter message(out);
    message.begin(MDQP_FLAG_LAST);
    message.field(MDQP_FIELD_PACKET_NO, packet_no_t{.packet_no = packet_no});
    message.filler(MDQP_FIELD_1002, kClosingFiller);
    message.end();
}

}  // namespace kova::sim
