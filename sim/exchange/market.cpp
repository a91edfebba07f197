#include "sim/exchange/market.h"

#include <algorithm>

namespace kova::sim {

namespace {

constexpr std::size_t kCacheLine = 64;

void prefetch(const Book& book) {
    const char* bytes = reinterpret_cast<const char*>(&book);
    for (std::size_t offset = 0; offset < sizeof(Book); offset += kCacheLine) {
        __builtin_prefetch(bytes + offset, 1);
    }
}

/** Indices in the listing of those that move. */
std::vector<std::uint32_t> moving_ones(const Listing& listing, const MarketOptions& options) {
    std::vector<std::uint32_t> moving;
    if (options.moving.empty()) {
        for (std::uint32_t i = 0; i < listing.instruments().size(); ++i) {
            moving.push_back(i);
        }
    }
    for (const InstrumentRef ref : options.moving) {
        moving.push_back(static_cast<std::uint32_t>(listing.index(ref)));
    }
    std::ranges::sort(moving);
    moving.erase(std::unique(moving.begin(), moving.end()), moving.end());
    return moving;
}

/** The weights of those that move, with the hot ones raised to their share. */
std::vector<double> weights_of(const Listing& listing, const std::vector<std::uint32_t>& moving,
                               const MarketOptions& options) {
    std::vector<bool> is_hot(listing.instruments().size());
    for (const InstrumentRef ref : options.hot) {
        is_hot[listing.index(ref)] = true;
    }
    double hot = 0;
    double others = 0;
    for (const std::uint32_t index : moving) {
        (is_hot[index] ? hot : others) += listing.instruments()[index].weight;
    }
    const double share = std::clamp(options.hot_share, 0.0, 1.0);
    const bool splits = !options.hot.empty() && hot > 0 && others > 0;
    std::vector<double> weights;
    for (const std::uint32_t index : moving) {
        const double part = is_hot[index] ? share / hot : (1 - share) / others;
        weights.push_back(listing.instruments()[index].weight * (splits ? part : 1));
    }
    return weights;
}

}  // namespace

Market::Market(const Listing& listing, const MarketOptions& options)
    : listing_(listing),
      shfe_count_(listing.count(SHFE_2PS)),
      moving_(moving_ones(listing, options)),
      choice_(weights_of(listing, moving_, options)),
      random_(options.seed),
      pull_(BookPull::from(options.trend)),
      time_(options.open_time),
      stamp_(ExchangeTime::from(options.open_time)) {
    books_.reserve(listing.instruments().size());
    for (const Instrument& instrument : listing.instruments()) {
        const bool is_tas = instrument.kind == InstrumentKind::tas;
        const std::int32_t settlement =
            is_tas ? listing.instruments()[instrument.underlying].pre_settlement : 0;
        books_.emplace_back(instrument, max_inst_no(instrument.ref.feed), settlement, stamp_, random_);
    }
    upcoming_ = moving_[choice_.pick(random_)];
}

Quote Market::next() {
    const std::uint32_t index = upcoming_;
    upcoming_ = moving_[choice_.pick(random_)];
    prefetch(books_[upcoming_]);
    Book& book = books_[index];
    book.move(random_, pull_, stamp_);
    const EMDQPDataType feed = index < shfe_count_ ? SHFE_2PS : INE_2PS;
    ++quotes_[static_cast<std::size_t>(feed)];
    return {.feed = feed, .record = book.record()};
}

void Market::advance_to(std::chrono::milliseconds time) {
    if (time > time_) {
        time_ = time;
        stamp_ = ExchangeTime::from(time);
    }
}

const KovaShfeMdType& Market::state(InstrumentRef ref) const {
    return books_[listing_.index(ref)].record();
}

SInstTableType Market::fill_row(const Instrument& instrument) const {
    const KovaShfeMdType& state = this->state(instrument.ref);
    SInstTableType row{};
    row.price_tick = instrument.tick;
    row.codec_price = instrument.codec_price;
    row.vol_multiple = instrument.multiplier;
    row.change_no = state.change_no;
    row.update_mill_sec = state.update_milli_sec;
    row.updatetime = state.update_time;
    row.bid5_price = state.bid5_px;
    row.bid5_vol = state.bid5_vol;
    row.bid4_price = state.bid4_px;
    row.bid4_vol = state.bid4_vol;
    row.bid3_price = state.bid3_px;
    row.bid3_vol = state.bid3_vol;
    row.bid2_price = state.bid2_px;
    row.bid2_vol = state.bid2_vol;
    row.bid1_price = state.bid1_px;
    row.bid1_vol = state.bid1_vol;
    row.ask5_price = state.ask5_px;
    row.ask5_vol = state.ask5_vol;
    row.ask4_price = state.ask4_px;
    row.ask4_vol = state.ask4_vol;
    row.ask3_price = state.ask3_px;
    row.ask3_vol = state.ask3_vol;
    row.ask2_price = state.ask2_px;
    row.ask2_vol = state.ask2_vol;
    row.ask1_price = state.ask1_px;
    row.ask1_vol = state.ask1_vol;
    row.open_interest = static_cast<std::uint64_t>(state.open_interest);
    row.turnover = static_cast<std::uint64_t>(state.turnover);
    row.volume = state.volume;
    row.last_price = state.last_px;
    std::ranges::copy(instrument.id_chars, row.inst_id);
    row.upper_limit_price = instrument.upper_limit;
    row.lower_limit_price = instrument.lower_limit;
    row.bid_volume = state.bid_volume;
    row.bid_amount = state.bid_amount;
    row.ask_volume = state.ask_volume;
    row.ask_amount = state.ask_amount;
    row.high_price = state.high_price;
    row.low_price = state.low_price;
    return row;
}

std::uint32_t Market::max_inst_no(EMDQPDataType feed) const {
    const std::uint32_t rows = listing_.rows(feed);
    return rows == 0 ? 0 : rows - 1;
}

}  // namespace kova::sim
