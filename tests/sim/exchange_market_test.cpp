#include "sim/exchange/market.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/exchange/product.h"
#include "support/allocations.h"

namespace kova::sim {
namespace {

// Fields of the packed records are compared as +field: a value, not a reference to something unaligned.

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

Listing full_listing() {
    return Listing::make({});
}

Listing small_listing(std::optional<std::int32_t> limit_permille = {}) {
    ListingOptions options;
    options.shfe = 64;
    options.ine = 16;
    options.limit_permille = limit_permille;
    return Listing::make(options);
}

struct Level {
    std::int32_t price;
    std::uint32_t volume;
};

std::array<Level, 5> bids_of(const KovaShfeMdType& q) {
    return {{{q.bid1_px, q.bid1_vol},
             {q.bid2_px, q.bid2_vol},
             {q.bid3_px, q.bid3_vol},
             {q.bid4_px, q.bid4_vol},
             {q.bid5_px, q.bid5_vol}}};
}

std::array<Level, 5> asks_of(const KovaShfeMdType& q) {
    return {{{q.ask1_px, q.ask1_vol},
             {q.ask2_px, q.ask2_vol},
             {q.ask3_px, q.ask3_vol},
             {q.ask4_px, q.ask4_vol},
             {q.ask5_px, q.ask5_vol}}};
}

/** One side of a book, best first; `away` is 1 for asks and -1 for bids. Empty when all is well. */
std::string fault_of_side(const std::array<Level, 5>& levels, int away, std::uint32_t total,
                          std::int64_t amount, const Instrument& instrument) {
    std::uint64_t volume = 0;
    std::int64_t visible = 0;
    bool is_empty = false;
    std::int64_t before = away > 0 ? INT64_MIN : INT64_MAX;
    for (const Level& level : levels) {
        if (level.volume == 0) {
            is_empty = true;
            if (level.price != 0) {
                return "a price without volume";
            }
            continue;
        }
        if (is_empty) {
            return "a level behind an empty one";
        }
        if (away > 0 ? level.price <= before : level.price >= before) {
            return "levels out of order";
        }
        if (level.price % instrument.tick != 0) {
            return "a price off the tick";
        }
        if (level.price < instrument.lower_limit || level.price > instrument.upper_limit) {
            return "a price outside the limits";
        }
        before = level.price;
        volume += level.volume;
        visible += std::int64_t{level.price} * level.volume;
    }
    if (total < volume) {
        return "a total below the levels";
    }
    const auto behind = static_cast<std::int64_t>(total - volume);
    if (behind > 0 && is_empty) {
        return "volume behind an empty level";
    }
    // What lies behind is priced between the last level and the limit.
    const std::int64_t nearest = behind * before;
    const std::int64_t furthest = behind * (away > 0 ? instrument.upper_limit : instrument.lower_limit);
    const std::int64_t rest = amount - visible;
    if (rest < std::min(nearest, furthest) || rest > std::max(nearest, furthest)) {
        return "an amount that does not fit";
    }
    return {};
}

std::string fault_of(const KovaShfeMdType& q, const Instrument& instrument) {
    const std::string bids = fault_of_side(bids_of(q), -1, q.bid_volume, q.bid_amount, instrument);
    const std::string asks = fault_of_side(asks_of(q), 1, q.ask_volume, q.ask_amount, instrument);
    if (!bids.empty() || !asks.empty()) {
        return "bids: " + bids + ", asks: " + asks;
    }
    if (q.bid1_vol > 0 && q.ask1_vol > 0 && q.bid1_px >= q.ask1_px) {
        return "crossed";
    }
    if (q.last_px % instrument.tick != 0 || q.low_price < instrument.lower_limit ||
        q.high_price > instrument.upper_limit || q.last_px < q.low_price || q.last_px > q.high_price) {
        return "last, high or low";
    }
    if (q.open_interest < 0) {
        return "open interest";
    }
    if (std::memcmp(q.inst_id, instrument.id_chars.data(), 16) != 0 || q.inst_no != instrument.ref.inst_no) {
        return "identity";
    }
    if (q.update_milli_sec > 999 || q.type != 0 || q.last_tick_flag || q.reverse[0] != 0 || q.reverse[1] != 0 ||
        q.reverse[2] != 0) {
        return "milliseconds, type, flag or reserved bytes";
    }
    return {};
}

/** What may not go back from one record of an instrument to its next. */
std::string fault_of_step(const KovaShfeMdType& before, const KovaShfeMdType& q) {
    if (q.change_no != before.change_no + 1) {
        return "change number";
    }
    if (q.volume < before.volume || q.turnover < before.turnover) {
        return "volume or turnover fell";
    }
    if ((q.volume > before.volume) != (q.turnover > before.turnover)) {
        return "volume and turnover do not rise together";
    }
    if (q.high_price < before.high_price || q.low_price > before.low_price) {
        return "high or low drew back";
    }
    if (q.volume == before.volume && q.last_px != before.last_px) {
        return "a last price without a trade";
    }
    const bool is_later = q.update_time > before.update_time || (q.update_time == before.update_time &&
                                                                 q.update_milli_sec >= before.update_milli_sec);
    if (!is_later) {
        return "time went back";
    }
    return {};
}

/** Takes so many quotes and checks each one; gives how many each instrument had. */
std::vector<std::uint32_t> check_quotes(Market& market, std::uint32_t count) {
    const Listing& listing = market.listing();
    std::vector<KovaShfeMdType> last;
    std::vector<std::uint32_t> seen(listing.instruments().size());
    for (const Instrument& instrument : listing.instruments()) {
        last.push_back(market.state(instrument.ref));
        EXPECT_EQ(fault_of(last.back(), instrument), "") << instrument.id();
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        market.advance_to(hours{9} + milliseconds{i / 100});
        const Quote quote = market.next();
        const std::size_t index = listing.index({quote.feed, quote.record.inst_no});
        const Instrument& instrument = listing.instruments()[index];
        const std::string fault = fault_of(quote.record, instrument) + fault_of_step(last[index], quote.record);
        if (!fault.empty() || quote.feed != instrument.ref.feed) {
            ADD_FAILURE() << "quote " << i << " of " << instrument.id() << ": " << fault;
            break;
        }
        last[index] = quote.record;
        ++seen[index];
    }
    return seen;
}

// ---------------------------------------------------------------- quotes

TEST(Market, TwoMillionQuotesOfTheFullListingAgreeWithThemselves) {
    const Listing listing = full_listing();
    Market market(listing);
    const std::vector<std::uint32_t> seen = check_quotes(market, 2'000'000);
    EXPECT_GT(seen[listing.index(listing.find("rb2501")->ref)], 10'000U);
}

TEST(Market, QuotesOfASmallListingAgreeThroughDaysOfTrading) {
    const Listing listing = small_listing();
    Market market(listing, {.seed = 99});
    const std::vector<std::uint32_t> seen = check_quotes(market, 1'000'000);
    EXPECT_THAT(seen, testing::Each(testing::Gt(0U)));
}

TEST(Market, PulledUpItEndsAtTheUpperLimitWithoutAsks) {
    const Listing listing = small_listing(10);
    Market market(listing, {.seed = 3, .trend = 1});
    check_quotes(market, 500'000);
    const Instrument& instrument = *listing.find("rb2501");
    const KovaShfeMdType& state = market.state(instrument.ref);
    EXPECT_EQ(+state.bid1_px, instrument.upper_limit);
    EXPECT_EQ(+state.ask1_px, 0);
    EXPECT_EQ(+state.ask1_vol, 0U);
    EXPECT_EQ(+state.ask_volume, 0U);
    EXPECT_EQ(+state.ask_amount, 0);
    EXPECT_EQ(+state.high_price, instrument.upper_limit);
}

TEST(Market, PulledDownItEndsAtTheLowerLimitWithoutBids) {
    const Listing listing = small_listing(10);
    Market market(listing, {.seed = 3, .trend = -1});
    check_quotes(market, 500'000);
    const Instrument& instrument = *listing.find("rb2501");
    const KovaShfeMdType& state = market.state(instrument.ref);
    EXPECT_EQ(+state.ask1_px, instrument.lower_limit);
    EXPECT_EQ(+state.bid1_px, 0);
    EXPECT_EQ(+state.bid_volume, 0U);
    EXPECT_EQ(+state.low_price, instrument.lower_limit);
}

TEST(Market, NarrowLimitsAreLeftAgain) {
    const Listing listing = small_listing(1);
    Market market(listing, {.seed = 5});
    check_quotes(market, 300'000);
    const Instrument& instrument = *listing.find("rb2501");
    bool was_at_upper = false;
    bool was_inside = false;
    bool was_at_lower = false;
    for (int i = 0; i < 300'000; ++i) {
        market.next();
        const KovaShfeMdType& state = market.state(instrument.ref);
        was_at_upper = was_at_upper || (state.ask1_vol == 0 && state.bid1_px == instrument.upper_limit);
        was_inside = was_inside || (state.ask1_vol != 0 && state.bid1_vol != 0);
        was_at_lower = was_at_lower || (state.bid1_vol == 0 && state.ask1_px == instrument.lower_limit);
    }
    EXPECT_TRUE(was_at_upper);
    EXPECT_TRUE(was_inside);
    EXPECT_TRUE(was_at_lower);
}

TEST(Market, BooksMove) {
    const Listing listing = small_listing();
    Market market(listing);
    const InstrumentRef rebar = listing.find("rb2501")->ref;
    const KovaShfeMdType opening = market.state(rebar);
    for (int i = 0; i < 200'000; ++i) {
        market.next();
    }
    const KovaShfeMdType& now = market.state(rebar);
    EXPECT_GT(+now.volume, +opening.volume);
    EXPECT_GT(+now.high_price, +opening.high_price);
    EXPECT_LT(+now.low_price, +opening.low_price);
    EXPECT_NE(+now.open_interest, +opening.open_interest);
    EXPECT_LE(+now.ask1_px - now.bid1_px, 10 * 100);  // ten ticks
}

TEST(Market, TurnoverIsPriceTimesLotsTimesMultiplier) {
    const Listing listing = small_listing();
    Market market(listing);
    const Instrument& copper = *listing.find("cu2412");
    ASSERT_EQ(copper.multiplier, 5U);
    KovaShfeMdType before = market.state(copper.ref);
    EXPECT_EQ(+before.turnover, std::int64_t{before.last_px} * before.volume * 5);
    int trades = 0;
    for (int i = 0; i < 100'000; ++i) {
        market.next();
        const KovaShfeMdType& now = market.state(copper.ref);
        const std::uint32_t lots = now.volume - before.volume;
        ASSERT_EQ(+now.turnover - before.turnover, std::int64_t{now.last_px} * lots * 5);
        trades += lots > 0 ? 1 : 0;
        before = now;
    }
    EXPECT_GT(trades, 100);
}

TEST(Market, ATradeTakesFromTheBestLevel) {
    const Listing listing = small_listing();
    Market market(listing);
    const InstrumentRef rebar = listing.find("rb2501")->ref;
    KovaShfeMdType before = market.state(rebar);
    for (int i = 0; i < 100'000; ++i) {
        market.next();
        const KovaShfeMdType& now = market.state(rebar);
        if (now.volume > before.volume) {
            const bool is_bid = now.last_px == before.bid1_px && now.volume - before.volume <= before.bid1_vol;
            const bool is_ask = now.last_px == before.ask1_px && now.volume - before.volume <= before.ask1_vol;
            ASSERT_TRUE(is_bid || is_ask);
        }
        before = now;
    }
}

TEST(Market, TasTurnoverIsCountedAtTheSettlementPrice) {
    const Listing listing = small_listing();
    Market market(listing);
    const Instrument& tas = *listing.find("sc2412TAS");
    const std::int32_t settlement = listing.find("sc2412")->pre_settlement;
    const KovaShfeMdType& opening = market.state(tas.ref);
    EXPECT_EQ(+opening.last_px, 0);
    EXPECT_EQ(+opening.bid1_px, 0);
    EXPECT_GT(+opening.bid1_vol, 0U);
    EXPECT_EQ(+opening.turnover, std::int64_t{settlement} * opening.volume * 1000);
}

TEST(Market, SameSeedSameQuotesOtherSeedOthers) {
    const Listing listing = full_listing();
    Market first(listing, {.seed = 5});
    Market again(listing, {.seed = 5});
    Market other(listing, {.seed = 6});
    int differences = 0;
    for (int i = 0; i < 200'000; ++i) {
        const Quote one = first.next();
        const Quote two = again.next();
        ASSERT_EQ(one.feed, two.feed);
        ASSERT_EQ(std::memcmp(&one.record, &two.record, sizeof(KovaShfeMdType)), 0) << i;
        const Quote three = other.next();
        differences += std::memcmp(&one.record, &three.record, sizeof(KovaShfeMdType)) != 0 ? 1 : 0;
    }
    EXPECT_GT(differences, 199'000);
}

TEST(Market, QuotesAllocateNothing) {
    const Listing listing = full_listing();
    Market market(listing);
    const std::uint64_t before = kova::test::Allocations::count();
    ASSERT_GT(before, 0U);
    for (int i = 0; i < 100'000; ++i) {
        market.advance_to(hours{9} + milliseconds{i});
        market.next();
    }
    EXPECT_EQ(kova::test::Allocations::count(), before);
}

// ---------------------------------------------------------------- who moves

TEST(Market, OnlyThoseAskedForMove) {
    const Listing listing = full_listing();
    const InstrumentRef copper = listing.find("cu2501")->ref;
    const InstrumentRef crude = listing.find("sc2501")->ref;
    Market market(listing, {.moving = {crude, copper, copper}});
    std::map<std::string, int> seen;
    for (int i = 0; i < 10'000; ++i) {
        const Quote quote = market.next();
        ++seen[listing.at({quote.feed, quote.record.inst_no}).id_chars.data()];
    }
    ASSERT_EQ(seen.size(), 2U);
    // 90 to 95 by the products' activity; both are the second month.
    EXPECT_NEAR(seen["cu2501"], 10'000 * 90 / 185, 250);
}

TEST(Market, NearMonthsOfBusyProductsGetMoreQuotes) {
    const Listing listing = full_listing();
    Market market(listing);
    const std::vector<std::uint32_t> seen = check_quotes(market, 300'000);
    const auto count = [&](const char* id) { return seen[listing.index(listing.find(id)->ref)]; };
    EXPECT_GT(count("rb2501"), 3 * count("rb2509"));
    EXPECT_GT(count("rb2501"), 20 * count("wr2501"));
    EXPECT_GT(count("cu2501"), 5 * count("cu2501C75000"));
}

TEST(Market, TheHotSetGetsItsShare) {
    const Listing listing = full_listing();
    MarketOptions options;
    options.hot = {listing.find("wr2506")->ref, listing.find("bc2509")->ref};
    options.hot_share = 0.75;
    Market market(listing, options);
    int hot = 0;
    for (int i = 0; i < 100'000; ++i) {
        const Quote quote = market.next();
        const std::string_view id = quote.record.inst_id;
        hot += id == "wr2506" || id == "bc2509" ? 1 : 0;
    }
    EXPECT_NEAR(hot, 75'000, 1000);
}

TEST(Market, AHotSetThatIsEverythingChangesNothing) {
    const Listing listing = small_listing();
    MarketOptions options;
    options.moving = {listing.find("cu2412")->ref};
    options.hot = options.moving;
    options.hot_share = 0.2;
    Market market(listing, options);
    EXPECT_STREQ(market.next().record.inst_id, "cu2412");
}

TEST(Market, AnEmptyListingIsRefused) {
    ListingOptions options;
    options.shfe = 0;
    options.ine = 0;
    const Listing listing = Listing::make(options);
    EXPECT_THROW(Market{listing}, std::invalid_argument);
}

// ---------------------------------------------------------------- time

TEST(Market, TimeIsHoursMinutesSecondsAsOneNumber) {
    const Listing listing = small_listing();
    Market market(listing);
    EXPECT_EQ(+market.next().record.update_time, 90000U);
    market.advance_to(hours{9} + minutes{30} + seconds{15} + milliseconds{678});
    const KovaShfeMdType later = market.next().record;
    EXPECT_EQ(+later.update_time, 93015U);
    EXPECT_EQ(+later.update_milli_sec, 678U);
}

TEST(Market, TimeNeverGoesBack) {
    const Listing listing = small_listing();
    Market market(listing);
    market.advance_to(hours{10});
    market.advance_to(hours{9} + minutes{59});
    EXPECT_EQ(+market.next().record.update_time, 100000U);
    EXPECT_EQ(market.time(), hours{10});
}

TEST(Market, HoursCountOnPastMidnight) {
    const Listing listing = small_listing();
    Market market(listing, {.open_time = hours{23} + minutes{59} + seconds{59}});
    EXPECT_EQ(+market.next().record.update_time, 235959U);
    market.advance_to(hours{24});
    EXPECT_EQ(+market.next().record.update_time, 240000U);
    market.advance_to(hours{26} + minutes{30});
    EXPECT_EQ(+market.next().record.update_time, 263000U);
}

// ---------------------------------------------------------------- rows

TEST(Market, ARowHoldsTheStaticDataAndTheBookOfNow) {
    const Listing listing = full_listing();
    Market market(listing);
    for (int i = 0; i < 50'000; ++i) {
        market.next();
    }
    const Instrument& rebar = *listing.find("rb2501");
    const KovaShfeMdType state = market.state(rebar.ref);
    const SInstTableType row = market.fill_row(rebar);
    EXPECT_EQ(+row.config, 0U);
    EXPECT_EQ(+row.price_tick, 100);
    EXPECT_EQ(+row.vol_multiple, 10U);
    EXPECT_EQ(+row.codec_price, rebar.pre_settlement);
    EXPECT_STREQ(row.inst_id, "rb2501");
    EXPECT_EQ(+row.upper_limit_price, rebar.upper_limit);
    EXPECT_EQ(+row.lower_limit_price, rebar.lower_limit);
    EXPECT_GT(+row.change_no, 1U);
    EXPECT_EQ(+row.change_no, +state.change_no);
    EXPECT_EQ(+row.updatetime, 90000U);
    EXPECT_EQ(+row.update_mill_sec, 0U);
    const std::array<std::int32_t, 10> prices = {row.bid1_price, row.bid2_price, row.bid3_price, row.bid4_price,
                                                 row.bid5_price, row.ask1_price, row.ask2_price, row.ask3_price,
                                                 row.ask4_price, row.ask5_price};
    const std::array<std::uint32_t, 10> volumes = {row.bid1_vol, row.bid2_vol, row.bid3_vol, row.bid4_vol,
                                                   row.bid5_vol, row.ask1_vol, row.ask2_vol, row.ask3_vol,
                                                   row.ask4_vol, row.ask5_vol};
    const std::array<Level, 5> bids = bids_of(state);
    const std::array<Level, 5> asks = asks_of(state);
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(prices[i], bids[i].price);
        EXPECT_EQ(volumes[i], bids[i].volume);
        EXPECT_EQ(prices[5 + i], asks[i].price);
        EXPECT_EQ(volumes[5 + i], asks[i].volume);
    }
    EXPECT_EQ(+row.open_interest, static_cast<std::uint64_t>(+state.open_interest));
    EXPECT_EQ(+row.turnover, static_cast<std::uint64_t>(+state.turnover));
    EXPECT_EQ(+row.volume, +state.volume);
    EXPECT_EQ(+row.last_price, +state.last_px);
    EXPECT_EQ(+row.bid_volume, +state.bid_volume);
    EXPECT_EQ(+row.bid_amount, +state.bid_amount);
    EXPECT_EQ(+row.ask_volume, +state.ask_volume);
    EXPECT_EQ(+row.ask_amount, +state.ask_amount);
    EXPECT_EQ(+row.high_price, +state.high_price);
    EXPECT_EQ(+row.low_price, +state.low_price);
    for (std::size_t i = 0; i < 17; ++i) {
        EXPECT_EQ(+row.reserved[i], 0);
    }
}

TEST(Market, MaxInstNoIsTheHighestOfTheFeed) {
    const Listing listing = small_listing();
    Market market(listing);
    EXPECT_EQ(market.max_inst_no(SHFE_2PS), 63U);
    EXPECT_EQ(market.max_inst_no(INE_4PS), 15U);
    EXPECT_EQ(+market.state(listing.find("cu2412")->ref).max_inst_no, 63U);
    EXPECT_EQ(+market.state(listing.find("sc2412")->ref).max_inst_no, 15U);
}

}  // namespace
}  // namespace kova::sim
