#include "sim/exchange/listing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <stdexcept>

#include "sim/exchange/calendar.h"
#include "sim/exchange/product.h"
#include "sim/exchange/random.h"
#include "wire/InstRow.h"

namespace kova::sim {

namespace {

using std::chrono::sys_days;
using std::chrono::year_month;

/** How far from the settlement price a TAS order may lie. */
constexpr std::int32_t kTasTicks = 10;

/** Share of a product's traffic by month, nearest first; those behind get the last one. */
constexpr std::array kMonthShare = {0.35, 1.0, 0.8, 0.5, 0.3, 0.2, 0.12, 0.08, 0.06, 0.05};
/** Options trade less than their future, and the less the further they are from the money. */
constexpr double kOptionShare = 0.04;
constexpr double kTasShare = 0.02;
constexpr double kOpenLots = 3000;  // open interest that goes with a weight of 1

std::int32_t floor_to(std::int64_t value, std::int32_t tick) {
    return static_cast<std::int32_t>(value - value % tick);
}

std::int32_t ceil_to(std::int64_t value, std::int32_t tick) {
    return floor_to(value + tick - 1, tick);
}

std::int32_t round_to(double value, std::int32_t tick) {
    return floor_to(std::llround(value) + tick / 2, tick);
}

/** A number that follows from the seed and a text, whatever else is listed. */
Random random_for(std::uint64_t seed, std::string_view text) {
    std::uint64_t mixed = seed;
    for (const char letter : text) {
        mixed = Random(mixed ^ static_cast<unsigned char>(letter)).bits();
    }
    return Random(mixed);
}

/** -1 to 1. */
double swing(Random& random) {
    constexpr std::uint32_t steps = 2'000'000;
    return static_cast<double>(random.below(steps + 1)) / (steps / 2) - 1;
}

std::uint32_t two_digits(year_month month) {
    return static_cast<std::uint32_t>(static_cast<int>(month.year()) % 100);
}

std::string future_id(const Product& product, year_month month) {
    const std::uint32_t number = two_digits(month) * 100 + static_cast<unsigned>(month.month());
    const std::string digits = std::to_string(number);
    return product.code + std::string(4 - digits.size(), '0') + digits;
}

/** Half-built instrument: what decides its place in the listing, and itself. */
struct Candidate {
    Instrument instrument;
    std::string future;      // identifier of its future
    std::uint32_t rank = 0;  // low ones stay when a listing is cut
    std::string id() const { return std::string(instrument.id()); }
};

class Builder {
 public:
    explicit Builder(const ListingOptions& options) : options_(options), day_(options.date) {}

    void add(const Product& product) {
        if (sys_days{product.since} > day_) {
            return;
        }
        // A level of the day's own, and a curve that rises or falls from month to month.
        Random random = random_for(options_.seed, product.code);
        const double level = product.price * (1 + 0.03 * swing(random));
        const double slope = 0.004 * swing(random);
        const std::vector<year_month> months = listed_months(product, day_);
        std::uint32_t option_months = 0;
        for (std::uint32_t ahead = 0; ahead < months.size(); ++ahead) {
            const double price = level * (1 + slope * ahead);
            const Instrument future = add_future(product, months[ahead], ahead, price);
            if (ahead < product.tas_months) {
                add_tas(future);
            }
            if (has_options(product, months[ahead]) && option_months < product.options->months) {
                add_options(future, last_option_day(*product.options, months[ahead]), option_months);
                ++option_months;
            }
        }
    }

    std::vector<Candidate> take(Exchange exchange) {
        return std::move(candidates_[static_cast<std::size_t>(exchange)]);
    }

 private:
    bool has_options(const Product& product, year_month month) const {
        return product.options && sys_days{product.options->since} <= day_ &&
               last_option_day(*product.options, month) >= day_;
    }

    void put(Instrument instrument, const std::string& id, std::string_view future, std::uint32_t rank) {
        if (id.size() >= instrument.id_chars.size()) {
            throw std::logic_error("identifier of more than 15 characters: " + id);
        }
        std::memcpy(instrument.id_chars.data(), id.data(), id.size());
        instrument.codec_price = instrument.pre_settlement;
        const auto place = static_cast<std::size_t>(instrument.product->exchange);
        candidates_[place].push_back({.instrument = instrument, .future = std::string(future), .rank = rank});
    }

    Instrument add_future(const Product& product, year_month month, std::uint32_t ahead, double price) {
        const std::string id = future_id(product, month);
        Random random = random_for(options_.seed, id);
        Instrument future;
        future.ref.feed = product.exchange == Exchange::shfe ? SHFE_2PS : INE_2PS;
        future.product = &product;
        future.delivery = static_cast<std::uint32_t>(static_cast<int>(month.year()) * 100) +
                          static_cast<unsigned>(month.month());
        future.months_ahead = ahead;
        future.tick = product.tick;
        future.multiplier = product.multiplier;
        future.pre_settlement = round_to(price * (1 + 0.001 * swing(random)), product.tick);
        const std::int64_t limit = options_.limit_permille.value_or(product.limit_permille);
        future.upper_limit = floor_to(future.pre_settlement * (1000 + limit) / 1000, product.tick);
        future.lower_limit = ceil_to((future.pre_settlement * (1000 - limit) + 999) / 1000, product.tick);
        future.weight = product.activity * kMonthShare[std::min<std::size_t>(ahead, kMonthShare.size() - 1)];
        future.pre_open_interest = lots(future.weight * kOpenLots, random);
        std::memcpy(future.id_chars.data(), id.data(), id.size());
        put(future, id, id, ahead * kRanksPerMonth);
        return future;
    }

    void add_tas(const Instrument& future) {
        Instrument tas = future;
        tas.kind = InstrumentKind::tas;
        tas.pre_settlement = 0;
        tas.upper_limit = kTasTicks * tas.tick;
        tas.lower_limit = -tas.upper_limit;
        tas.weight *= kTasShare;
        // A TAS trade opens and closes positions in the future itself.
        tas.pre_open_interest = 0;
        put(tas, std::string(future.id()) + "TAS", future.id(), future.months_ahead * kRanksPerMonth + 1);
    }

    /** The strikes of a future from its band's lower end upward. */
    std::vector<std::int32_t> strikes(const Instrument& future) const {
        const OptionRule& rule = *future.product->options;
        const std::int64_t reach = std::int64_t{future.pre_settlement} * rule.band_permille / 1000;
        const std::int64_t highest = future.pre_settlement + reach;
        const std::int64_t lowest = future.pre_settlement - reach;
        std::vector<std::int32_t> found;
        for (std::size_t i = 0; i < rule.strikes.size(); ++i) {
            const auto [from, step] = rule.strikes[i];
            const bool is_last = i + 1 == rule.strikes.size();
            const std::int64_t up_to =
                is_last ? highest : std::min<std::int64_t>(rule.strikes[i + 1].from, highest);
            const std::int64_t below_first = std::max<std::int64_t>(from, lowest - 1);
            for (std::int32_t strike = floor_to(below_first, step) + step; strike <= up_to; strike += step) {
                found.push_back(strike);
            }
        }
        return found;
    }

    void add_options(const Instrument& future, sys_days last_day, std::uint32_t series) {
        const std::vector<std::int32_t> all = strikes(future);
        // Strikes by their distance from the money, in steps.
        std::vector<std::int32_t> nearest = all;
        std::ranges::sort(nearest, {}, [&](std::int32_t strike) {
            return std::abs(std::int64_t{strike} - future.pre_settlement);
        });
        for (std::uint32_t distance = 0; distance < nearest.size(); ++distance) {
            for (const bool is_call : {true, false}) {
                const std::uint32_t rank =
                    (future.months_ahead + series + distance) * kRanksPerMonth + (is_call ? 2 : 3);
                add_option(future, nearest[distance], is_call, distance, last_day, rank);
            }
        }
    }

    void add_option(const Instrument& future, std::int32_t strike, bool is_call, std::uint32_t distance,
                    sys_days last_day, std::uint32_t rank) {
        constexpr std::int32_t hundredths = 100;
        const OptionRule& rule = *future.product->options;
        const std::string id =
            std::string(future.id()) + (is_call ? "C" : "P") + std::to_string(strike / hundredths);
        Random random = random_for(options_.seed, id);
        Instrument option = future;
        option.kind = InstrumentKind::option;
        option.id_chars = {};
        option.is_call = is_call;
        option.strike = strike;
        option.tick = rule.tick;
        option.pre_settlement = std::max(rule.tick, round_to(premium(future, option, last_day), rule.tick));
        const std::int64_t limit = future.upper_limit - future.pre_settlement;
        option.upper_limit = floor_to(option.pre_settlement + limit, rule.tick);
        option.lower_limit =
            std::max(rule.tick, ceil_to(std::max<std::int64_t>(option.pre_settlement - limit, 0), rule.tick));
        option.weight = future.weight * kOptionShare / (1 + 0.1 * distance * distance);
        option.pre_open_interest = lots(option.weight * kOpenLots, random);
        put(option, id, future.id(), rank);
    }

    /** Intrinsic value and a time value that is highest at the money; right in kind, exact on every machine. */
    double premium(const Instrument& future, const Instrument& option, sys_days last_day) const {
        const double price = future.pre_settlement;
        const double years = static_cast<double>((last_day - day_).count() + 1) / 365;
        const double deviation = price * future.product->options->volatility_permille / 1000 * std::sqrt(years);
        const double distance = (option.strike - price) / deviation;
        const double intrinsic = option.is_call ? price - option.strike : option.strike - price;
        const double bell = 1 + distance * distance / 2;
        return std::max(intrinsic, 0.0) + 0.4 * deviation / (bell * bell);
    }

    static std::uint64_t lots(double typical, Random& random) {
        return static_cast<std::uint64_t>(typical * (1 + 0.5 * swing(random)));
    }

    static constexpr std::uint32_t kRanksPerMonth = 4;

    const ListingOptions& options_;
    sys_days day_;
    std::array<std::vector<Candidate>, 2> candidates_;
};

/** Cuts an exchange's instruments to their number and numbers them by identifier. */
std::vector<Candidate> cut(std::vector<Candidate> candidates, std::uint32_t most) {
    // The sort keeps products in order within a rank. An option or TAS instrument ranks behind its future.
    std::ranges::stable_sort(candidates, {}, &Candidate::rank);
    if (candidates.size() > most) {
        candidates.erase(candidates.begin() + most, candidates.end());
    }
    std::ranges::sort(candidates, {}, &Candidate::id);
    return candidates;
}

constexpr std::uint32_t kNone = 0xFFFFFFFF;

std::size_t exchange_of(EMDQPDataType feed) {
    return static_cast<std::size_t>(feed == SHFE_2PS || feed == SHFE_4PS ? Exchange::shfe : Exchange::ine);
}

/** What the futures at the edges belong to: letters that no product's code consists of. */
const Product& edge_product(Exchange exchange) {
    static const std::array<Product, 2> all = [] {
        std::array<Product, 2> made;
        made[0].code = 'x';
        made[1].code = 'y';
        made[1].exchange = Exchange::ine;
        return made;
    }();
    return all[static_cast<std::size_t>(exchange)];
}

/** Futures like `model` with identifiers of each length: "x", "x2", "x23" up to "x23456789012345". */
std::vector<Instrument> edges_like(const Instrument& model) {
    const Product& product = edge_product(model.product->exchange);
    std::string id = product.code;
    std::vector<Instrument> edges;
    for (std::size_t size = 1; size <= kMostIdentifier; ++size) {
        Instrument edge = model;
        edge.product = &product;
        edge.id_chars = {};
        std::memcpy(edge.id_chars.data(), id.data(), id.size());
        edges.push_back(edge);
        id += static_cast<char>('0' + (size + 1) % 10);
    }
    return edges;
}

/** The edges of an exchange, by length; none unless they are wanted and the exchange lists anything at all. */
std::vector<Instrument> edges_of(const ListingOptions& options, const std::vector<Candidate>& candidates) {
    // A product's nearest future comes first.
    return options.edges && !candidates.empty() ? edges_like(candidates.front().instrument)
                                                : std::vector<Instrument>();
}

}  // namespace

Listing Listing::make(const ListingOptions& options) {
    if (!options.date.ok() || is_weekend(options.date)) {
        throw std::invalid_argument("no trading day");
    }
    Builder builder(options);
    for (const Product& product : products()) {
        builder.add(product);
    }
    Listing listing;
    listing.options_ = options;
    const std::array most = {options.shfe.value_or(SHFE_TABLE_ROWS), options.ine.value_or(INE_TABLE_ROWS)};
    const std::array rows = {SHFE_TABLE_ROWS, INE_TABLE_ROWS};
    for (const Exchange exchange : {Exchange::shfe, Exchange::ine}) {
        const auto place = static_cast<std::size_t>(exchange);
        std::vector<Candidate> candidates = builder.take(exchange);
        const std::vector<Instrument> edges = edges_of(options, candidates);
        const auto edge_count = static_cast<std::uint32_t>(edges.size());
        std::uint32_t inst_no = 0;
        if (!edges.empty()) {
            listing.add(edges.front(), inst_no++, edges.front().id());
        }
        for (const Candidate& chosen :
             cut(std::move(candidates), std::min(most[place], rows[place] - edge_count))) {
            listing.add(chosen.instrument, inst_no++, chosen.future);
        }
        for (std::uint32_t i = 1; i < edge_count; ++i) {
            listing.add(edges[i], rows[place] - edge_count + i, edges[i].id());
        }
        if (exchange == Exchange::shfe) {
            listing.shfe_count_ = listing.instruments_.size();
        }
    }
    return listing;
}

/** Adds an instrument behind all others; its future stands before its options and TAS instrument. */
void Listing::add(Instrument instrument, std::uint32_t inst_no, std::string_view future) {
    const auto index = static_cast<std::uint32_t>(instruments_.size());
    instrument.ref.inst_no = inst_no;
    by_id_.emplace(instrument.id(), index);
    instrument.underlying = by_id_.at(std::string(future));
    std::vector<std::uint32_t>& numbers = by_number_[exchange_of(instrument.ref.feed)];
    numbers.resize(inst_no + std::size_t{1}, kNone);
    numbers[inst_no] = index;
    instruments_.push_back(instrument);
}

std::span<const Instrument> Listing::of(EMDQPDataType feed) const {
    const std::span<const Instrument> all = instruments();
    const bool is_shfe = exchange_of(feed) == exchange_of(SHFE_2PS);
    return is_shfe ? all.first(shfe_count_) : all.subspan(shfe_count_);
}

std::uint32_t Listing::count(EMDQPDataType feed) const {
    return static_cast<std::uint32_t>(of(feed).size());
}

const Instrument* Listing::find(std::string_view id) const {
    const auto found = by_id_.find(std::string(id));
    return found == by_id_.end() ? nullptr : &instruments_[found->second];
}

std::uint32_t Listing::rows(EMDQPDataType feed) const {
    return static_cast<std::uint32_t>(by_number_[exchange_of(feed)].size());
}

bool Listing::has(InstrumentRef ref) const {
    const std::vector<std::uint32_t>& numbers = by_number_[exchange_of(ref.feed)];
    return ref.inst_no < numbers.size() && numbers[ref.inst_no] != kNone;
}

std::size_t Listing::index(InstrumentRef ref) const {
    return by_number_[exchange_of(ref.feed)][ref.inst_no];
}

}  // namespace kova::sim
