#include "sim/exchange/listing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "sim/exchange/calendar.h"
#include "sim/exchange/product.h"
#include "wire/InstRow.h"

namespace kova::sim {
namespace {

using std::chrono::day;
using std::chrono::month;
using std::chrono::sys_days;
using std::chrono::year;
using std::chrono::year_month;
using std::chrono::year_month_day;
using testing::ElementsAre;

year_month_day date(int y, unsigned m, unsigned d) {
    return {year{y}, month{m}, day{d}};
}

year_month delivery(int y, unsigned m) {
    return {year{y}, month{m}};
}

Listing listing_of(year_month_day on, std::uint64_t seed = 1) {
    return Listing::make({.seed = seed, .date = on});
}

Listing cut_listing(std::uint32_t shfe, std::uint32_t ine) {
    return Listing::make({.seed = 1, .date = date(2024, 11, 18), .shfe = shfe, .ine = ine});
}

std::vector<std::string> ids(const Listing& listing, std::string_view product, InstrumentKind kind) {
    std::vector<std::string> found;
    for (const Instrument& instrument : listing.instruments()) {
        if (instrument.product->code == product && instrument.kind == kind) {
            found.emplace_back(instrument.id());
        }
    }
    return found;
}

std::vector<std::string> futures(const Listing& listing, std::string_view product) {
    return ids(listing, product, InstrumentKind::future);
}

// ---------------------------------------------------------------- products

TEST(Products, AreThoseOfBothExchangesInTheOrderOfTheirCodes) {
    std::vector<std::string> codes;
    for (const Product& product : products()) {
        codes.push_back(product.code);
    }
    EXPECT_THAT(codes, ElementsAre("ad", "ag", "al", "ao", "au", "bc", "br", "bu", "cu", "ec", "fu", "hc", "lu",
                                   "ni", "nr", "pb", "rb", "ru", "sc", "sn", "sp", "ss", "wr", "zn"));
}

TEST(Products, CopperIsFiveTonsInTensOfYuan) {
    const Product* copper = find_product("cu");
    ASSERT_NE(copper, nullptr);
    EXPECT_EQ(copper->exchange, Exchange::shfe);
    EXPECT_EQ(copper->tick, 1000);
    EXPECT_EQ(copper->multiplier, 5U);
    EXPECT_EQ(copper->options->tick, 200);
}

TEST(Products, GoldIsAThousandGramsInTwoFen) {
    const Product* gold = find_product("au");
    ASSERT_NE(gold, nullptr);
    EXPECT_EQ(gold->tick, 2);
    EXPECT_EQ(gold->multiplier, 1000U);
    EXPECT_EQ(gold->options->tick, 2);
}

TEST(Products, CrudeOilIsAThousandBarrelsInTenFenOnIne) {
    const Product* crude = find_product("sc");
    ASSERT_NE(crude, nullptr);
    EXPECT_EQ(crude->exchange, Exchange::ine);
    EXPECT_EQ(crude->tick, 10);
    EXPECT_EQ(crude->multiplier, 1000U);
    EXPECT_EQ(crude->options->tick, 5);
}

TEST(Products, UnknownCodeIsNone) {
    EXPECT_EQ(find_product("xx"), nullptr);
    EXPECT_EQ(find_product(""), nullptr);
    EXPECT_EQ(find_product("CU"), nullptr);
}

// ---------------------------------------------------------------- calendar

TEST(Calendar, MetalsTradeUntilThe15thOrTheNextWeekday) {
    const Product& tin = *find_product("sn");
    EXPECT_EQ(last_trading_day(tin, delivery(2018, 11)), sys_days{date(2018, 11, 15)});
    EXPECT_EQ(last_trading_day(tin, delivery(2018, 9)), sys_days{date(2018, 9, 17)});
    EXPECT_EQ(last_trading_day(tin, delivery(2019, 12)), sys_days{date(2019, 12, 16)});
}

TEST(Calendar, CrudeOilTradesUntilTheLastWeekdayOfTheMonthBefore) {
    const Product& crude = *find_product("sc");
    EXPECT_EQ(last_trading_day(crude, delivery(2024, 12)), sys_days{date(2024, 11, 29)});
    EXPECT_EQ(last_trading_day(crude, delivery(2025, 1)), sys_days{date(2024, 12, 31)});
}

TEST(Calendar, FreightTradesUntilTheLastMonday) {
    EXPECT_EQ(last_trading_day(*find_product("ec"), delivery(2024, 12)), sys_days{date(2024, 12, 30)});
}

TEST(Calendar, CrudeOilOptionsEndOnTheThirteenthWeekdayFromTheEndOfTheMonthBefore) {
    EXPECT_EQ(last_option_day(*find_product("sc")->options, delivery(2025, 7)), sys_days{date(2025, 6, 12)});
}

TEST(Calendar, ShfeOptionsEndOnTheFifthWeekdayFromTheEndOfTheMonthBefore) {
    EXPECT_EQ(last_option_day(*find_product("cu")->options, delivery(2025, 1)), sys_days{date(2024, 12, 25)});
}

// ---------------------------------------------------------------- months

TEST(Listing, CopperHasTwelveMonths) {
    EXPECT_THAT(futures(listing_of(date(2020, 10, 22)), "cu"),
                ElementsAre("cu2011", "cu2012", "cu2101", "cu2102", "cu2103", "cu2104", "cu2105", "cu2106",
                            "cu2107", "cu2108", "cu2109", "cu2110"));
}

TEST(Listing, AFutureTradesOnItsLastDayAndIsGoneOnTheNext) {
    EXPECT_EQ(futures(listing_of(date(2024, 11, 15)), "cu").front(), "cu2411");
    EXPECT_EQ(futures(listing_of(date(2024, 11, 18)), "cu").front(), "cu2412");
}

TEST(Listing, GoldHasThreeMonthsAndTheEvenOnesOfThirteen) {
    EXPECT_THAT(futures(listing_of(date(2024, 11, 18)), "au"),
                ElementsAre("au2412", "au2501", "au2502", "au2504", "au2506", "au2508", "au2510", "au2512"));
}

TEST(Listing, RubberHasNoFebruaryAndNoDecember) {
    EXPECT_THAT(futures(listing_of(date(2024, 11, 18)), "ru"),
                ElementsAre("ru2501", "ru2503", "ru2504", "ru2505", "ru2506", "ru2507", "ru2508", "ru2509",
                            "ru2510", "ru2511"));
}

TEST(Listing, BitumenHasTwelveMonthsAndFourQuarters) {
    EXPECT_THAT(futures(listing_of(date(2024, 11, 18)), "bu"),
                ElementsAre("bu2412", "bu2501", "bu2502", "bu2503", "bu2504", "bu2505", "bu2506", "bu2507",
                            "bu2508", "bu2509", "bu2510", "bu2511", "bu2512", "bu2603", "bu2606", "bu2609"));
}

TEST(Listing, CrudeOilHasTwelveMonthsAndEightQuarters) {
    EXPECT_THAT(futures(listing_of(date(2024, 11, 18)), "sc"),
                ElementsAre("sc2412", "sc2501", "sc2502", "sc2503", "sc2504", "sc2505", "sc2506", "sc2507",
                            "sc2508", "sc2509", "sc2510", "sc2511", "sc2512", "sc2603", "sc2606", "sc2609",
                            "sc2612", "sc2703", "sc2706", "sc2709"));
}

TEST(Listing, FreightHasTheEvenMonths) {
    EXPECT_THAT(futures(listing_of(date(2024, 11, 18)), "ec"),
                ElementsAre("ec2412", "ec2502", "ec2504", "ec2506", "ec2508", "ec2510"));
}

TEST(Listing, CrudeOilTradesAtSettlementInItsTwoNearestMonths) {
    EXPECT_THAT(ids(listing_of(date(2022, 9, 1)), "sc", InstrumentKind::tas),
                ElementsAre("sc2210TAS", "sc2211TAS"));
}

TEST(Listing, AProductIsListedFromItsFirstDay) {
    EXPECT_THAT(futures(listing_of(date(2025, 6, 9)), "ad"), testing::IsEmpty());
    EXPECT_EQ(futures(listing_of(date(2025, 6, 10)), "ad").size(), 12U);
}

// ---------------------------------------------------------------- options

TEST(Listing, OptionsAreNamedByFutureKindAndStrike) {
    const Listing listing = listing_of(date(2024, 11, 18));
    for (const char* id :
         {"cu2501C75000", "cu2501P75000", "sc2501C550", "sc2501P550", "au2502C600", "ag2502P7600"}) {
        const Instrument* option = listing.find(id);
        ASSERT_NE(option, nullptr) << id;
        EXPECT_EQ(option->kind, InstrumentKind::option) << id;
    }
    EXPECT_EQ(listing.find("cu2501C75000")->strike, 7500000);
    EXPECT_TRUE(listing.find("cu2501C75000")->is_call);
    EXPECT_FALSE(listing.find("cu2501P75000")->is_call);
    EXPECT_EQ(listing.instruments()[listing.find("sc2501C550")->underlying].id(), "sc2501");
}

TEST(Listing, CopperStrikesStandAThousandApartAndTwoThousandAbove80000) {
    const Listing listing = listing_of(date(2024, 11, 18));
    EXPECT_NE(listing.find("cu2501C79000"), nullptr);
    EXPECT_NE(listing.find("cu2501C80000"), nullptr);
    EXPECT_EQ(listing.find("cu2501C81000"), nullptr);
    EXPECT_NE(listing.find("cu2501C82000"), nullptr);
    EXPECT_EQ(listing.find("cu2501C75500"), nullptr);
}

TEST(Listing, CrudeOilStrikesStandFiveApartAndTenAbove500) {
    const Listing listing = listing_of(date(2024, 11, 18));
    EXPECT_NE(listing.find("sc2501P495"), nullptr);
    EXPECT_NE(listing.find("sc2501P500"), nullptr);
    EXPECT_EQ(listing.find("sc2501P505"), nullptr);
    EXPECT_NE(listing.find("sc2501P510"), nullptr);
}

TEST(Listing, OptionsEndBeforeTheirFuture) {
    // Options on cu2412 end on 25 November, those on sc2501 on 13 December.
    EXPECT_NE(listing_of(date(2024, 11, 25)).find("cu2412C75000"), nullptr);
    EXPECT_EQ(listing_of(date(2024, 11, 26)).find("cu2412C75000"), nullptr);
    EXPECT_NE(listing_of(date(2024, 12, 13)).find("sc2501C550"), nullptr);
    EXPECT_EQ(listing_of(date(2024, 12, 16)).find("sc2501C550"), nullptr);
    EXPECT_NE(listing_of(date(2024, 12, 16)).find("sc2501"), nullptr);
}

TEST(Listing, EveryStrikeHasACallAndAPut) {
    const Listing listing = listing_of(date(2024, 11, 18));
    std::set<std::pair<std::uint32_t, std::int32_t>> calls;
    std::set<std::pair<std::uint32_t, std::int32_t>> puts;
    for (const Instrument& instrument : listing.instruments()) {
        if (instrument.kind == InstrumentKind::option) {
            (instrument.is_call ? calls : puts).emplace(instrument.underlying, instrument.strike);
        }
    }
    EXPECT_GT(calls.size(), 5000U);
    EXPECT_EQ(calls, puts);
}

// ---------------------------------------------------------------- the whole

TEST(Listing, FullListingHasAboutTwelveThousandAndFifteenHundredInstruments) {
    for (const year_month_day on :
         {date(2024, 11, 18), date(2024, 12, 27), date(2025, 3, 17), date(2025, 10, 13)}) {
        for (const std::uint64_t seed : {1U, 2U, 20241118U}) {
            const Listing listing = listing_of(on, seed);
            EXPECT_GE(listing.count(SHFE_2PS), 11400U);
            EXPECT_LE(listing.count(SHFE_2PS), 12600U);
            EXPECT_GE(listing.count(INE_2PS), 1400U);
            EXPECT_LE(listing.count(INE_2PS), 1600U);
            EXPECT_EQ(listing.count(SHFE_4PS), listing.count(SHFE_2PS));
            EXPECT_EQ(listing.count(INE_4PS), listing.count(INE_2PS));
        }
    }
}

TEST(Listing, IdentifiersAreUniqueAndOfAtMostFifteenCharacters) {
    const Listing listing = listing_of(date(2025, 10, 13));
    std::set<std::string> seen;
    for (const Instrument& instrument : listing.instruments()) {
        EXPECT_GE(instrument.id().size(), 6U);
        EXPECT_LE(instrument.id().size(), 15U);
        EXPECT_EQ(instrument.id_chars[15], '\0');
        EXPECT_TRUE(seen.emplace(instrument.id()).second) << instrument.id();
    }
}

TEST(Listing, NumbersRunFromZeroWithoutAGapInTheOrderOfIdentifiers) {
    const Listing listing = listing_of(date(2024, 11, 18));
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS}) {
        std::uint32_t expected = 0;
        std::string before;
        for (const Instrument& instrument : listing.of(feed)) {
            ASSERT_EQ(instrument.ref.feed, feed);
            ASSERT_EQ(instrument.ref.inst_no, expected++);
            ASSERT_LT(before, instrument.id());
            before = instrument.id();
            ASSERT_EQ(&listing.at(instrument.ref), &instrument);
            ASSERT_EQ(listing.find(instrument.id()), &instrument);
        }
    }
    EXPECT_EQ(listing.of(SHFE_2PS).front().id(), "ag2412");
    EXPECT_EQ(listing.of(INE_2PS).front().id(), "bc2412");
    EXPECT_EQ(listing.find("xx2501"), nullptr);
}

TEST(Listing, PricesLieOnTheTickAndWithinTheLimits) {
    const Listing listing = listing_of(date(2024, 11, 18));
    for (const Instrument& instrument : listing.instruments()) {
        ASSERT_GT(instrument.tick, 0);
        ASSERT_EQ(instrument.pre_settlement % instrument.tick, 0) << instrument.id();
        ASSERT_EQ(instrument.upper_limit % instrument.tick, 0) << instrument.id();
        ASSERT_EQ(instrument.lower_limit % instrument.tick, 0) << instrument.id();
        ASSERT_LE(instrument.lower_limit, instrument.pre_settlement) << instrument.id();
        ASSERT_LT(instrument.pre_settlement, instrument.upper_limit) << instrument.id();
        if (instrument.kind != InstrumentKind::tas) {
            ASSERT_GT(instrument.lower_limit, 0) << instrument.id();
        }
        ASSERT_EQ(instrument.codec_price, instrument.pre_settlement) << instrument.id();
        ASSERT_GT(instrument.weight, 0) << instrument.id();
    }
}

TEST(Listing, DailyLimitIsAPercentageOfTheSettlementPriceRoundedInward) {
    const Listing listing = listing_of(date(2024, 11, 18));
    const Instrument& copper = *listing.find("cu2501");  // 7 percent, tick 10
    EXPECT_LE(copper.upper_limit, copper.pre_settlement * 1.07);
    EXPECT_GT(copper.upper_limit, copper.pre_settlement * 1.07 - 1000);
    EXPECT_GE(copper.lower_limit, copper.pre_settlement * 0.93);
    EXPECT_LT(copper.lower_limit, copper.pre_settlement * 0.93 + 1000);
}

TEST(Listing, DailyLimitCanBeSetForAll) {
    const Listing listing = Listing::make({.seed = 1, .date = date(2024, 11, 18), .limit_permille = 10});
    const Instrument& copper = *listing.find("cu2501");
    EXPECT_LE(copper.upper_limit, copper.pre_settlement * 1.01);
    EXPECT_GT(copper.upper_limit, copper.pre_settlement * 1.01 - 1000);
}

TEST(Listing, OptionsHaveTheirFuturesLimitInYuan) {
    const Listing listing = listing_of(date(2024, 11, 18));
    const Instrument& future = *listing.find("cu2501");
    const Instrument& call = *listing.find("cu2501C60000");  // deep in the money
    EXPECT_NEAR(call.upper_limit - call.pre_settlement, future.upper_limit - future.pre_settlement, 200);
    const Instrument& put = *listing.find("cu2501P60000");  // far out of the money: no price below a tick
    EXPECT_EQ(put.lower_limit, 200);
}

TEST(Listing, OptionPremiumsAreIntrinsicValueAndSomeTimeValue) {
    const Listing listing = listing_of(date(2024, 11, 18));
    const std::int32_t future = listing.find("cu2501")->pre_settlement;
    const std::int32_t call = listing.find("cu2501C60000")->pre_settlement;
    EXPECT_GE(call, future - 6000000);
    EXPECT_LE(call, future - 6000000 + 100000);
    EXPECT_GT(listing.find("cu2501C75000")->pre_settlement, listing.find("cu2501C78000")->pre_settlement);
    EXPECT_GT(listing.find("cu2506C75000")->pre_settlement, 0);
}

TEST(Listing, TasPricesAreDistancesFromTheSettlementPrice) {
    const Listing listing = listing_of(date(2024, 11, 18));
    const Instrument& tas = *listing.find("sc2412TAS");
    EXPECT_EQ(tas.pre_settlement, 0);
    EXPECT_EQ(tas.upper_limit, 100);
    EXPECT_EQ(tas.lower_limit, -100);
    EXPECT_EQ(tas.tick, 10);
    EXPECT_EQ(listing.instruments()[tas.underlying].id(), "sc2412");
}

TEST(Listing, FollowsFromSeedAndDate) {
    const Listing first = listing_of(date(2024, 11, 18), 7);
    const Listing again = listing_of(date(2024, 11, 18), 7);
    const Listing other = listing_of(date(2024, 11, 18), 8);
    ASSERT_EQ(first.instruments().size(), again.instruments().size());
    for (std::size_t i = 0; i < first.instruments().size(); ++i) {
        ASSERT_EQ(first.instruments()[i].id(), again.instruments()[i].id());
        ASSERT_EQ(first.instruments()[i].pre_settlement, again.instruments()[i].pre_settlement);
        ASSERT_EQ(first.instruments()[i].pre_open_interest, again.instruments()[i].pre_open_interest);
    }
    EXPECT_NE(first.find("cu2501")->pre_settlement, other.find("cu2501")->pre_settlement);
}

TEST(Listing, AWeekendIsRefused) {
    EXPECT_THROW(listing_of(date(2024, 11, 17)), std::invalid_argument);
    EXPECT_THROW(listing_of(date(2024, 11, 31)), std::invalid_argument);
}

// ---------------------------------------------------------------- cut listings

TEST(Listing, IsCutToTheNumberAskedFor) {
    const Listing listing = cut_listing(40, 8);
    EXPECT_EQ(listing.count(SHFE_2PS), 40U);
    EXPECT_EQ(listing.count(INE_2PS), 8U);
    EXPECT_EQ(cut_listing(0, 5).count(SHFE_2PS), 0U);
    EXPECT_EQ(cut_listing(0, 5).of(INE_2PS).front().ref.inst_no, 0U);
    EXPECT_EQ(cut_listing(99999, 5).count(SHFE_2PS), listing_of(date(2024, 11, 18)).count(SHFE_2PS));
}

TEST(Listing, ASmallListingHasEveryProductAndEveryKind) {
    const Listing listing = cut_listing(64, 16);
    std::set<std::string> codes;
    std::set<InstrumentKind> kinds;
    for (const Instrument& instrument : listing.instruments()) {
        codes.insert(instrument.product->code);
        kinds.insert(instrument.kind);
    }
    EXPECT_EQ(codes.size(), 23U);  // all but the one not listed yet on that day
    EXPECT_EQ(kinds.size(), 3U);
}

TEST(Listing, AnOptionIsNeverWithoutItsFuture) {
    for (std::uint32_t most = 1; most < 120; ++most) {
        const Listing listing = cut_listing(most, most);
        for (const Instrument& instrument : listing.instruments()) {
            const Instrument& underlying = listing.instruments()[instrument.underlying];
            ASSERT_EQ(underlying.kind, InstrumentKind::future);
            ASSERT_TRUE(instrument.id().starts_with(underlying.id()));
        }
    }
}

// ---------------------------------------------------------------- subscription word

TEST(SubscriptionWord, HasChannelsAndMarks) {
    const Listing listing = cut_listing(64, 16);
    const Instrument& tas = *listing.find("sc2412TAS");
    const Instrument& future = *listing.find("sc2412");
    EXPECT_EQ(subscription_word(future, 0), 0U);
    EXPECT_EQ(subscription_word(future, 0x8001), 0x80008001U);
    EXPECT_EQ(subscription_word(tas, 0x0008), 0xC0000008U);
    EXPECT_EQ(subscription_word(tas, 0), 0U);
}

// ---------------------------------------------------------------- edges

TEST(Listing, EdgesHaveIdentifiersOfEachLengthAndTheFirstAndLastNumbers) {
    const Listing listing = Listing::make({.shfe = 4, .ine = 0, .edges = true});
    ASSERT_EQ(listing.count(SHFE_2PS), 19U);
    ASSERT_EQ(listing.count(INE_2PS), 15U);
    EXPECT_EQ(listing.rows(SHFE_4PS), 16384U);
    EXPECT_EQ(listing.rows(INE_2PS), 4096U);
    EXPECT_EQ(listing.find("x")->ref, (InstrumentRef{SHFE_2PS, 0}));
    EXPECT_EQ(listing.find("x2")->ref, (InstrumentRef{SHFE_2PS, 16370}));
    EXPECT_EQ(listing.find("x23456789012345")->ref, (InstrumentRef{SHFE_2PS, 16383}));
    EXPECT_EQ(listing.find("y")->ref, (InstrumentRef{INE_2PS, 0}));
    EXPECT_EQ(listing.find("y2")->ref, (InstrumentRef{INE_2PS, 4082}));
    EXPECT_EQ(listing.find("y23456789012345")->ref, (InstrumentRef{INE_2PS, 4095}));
    std::set<std::size_t> lengths;
    for (const Instrument& instrument : listing.of(INE_2PS)) {
        lengths.insert(instrument.id().size());
        EXPECT_EQ(listing.at(instrument.ref).id(), instrument.id());
        EXPECT_EQ(listing.instruments()[instrument.underlying].id(), instrument.id());
    }
    EXPECT_EQ(lengths.size(), 15U);
    EXPECT_EQ(*lengths.rbegin(), 15U);
    EXPECT_TRUE(listing.has({SHFE_2PS, 4}));
    EXPECT_FALSE(listing.has({SHFE_2PS, 5}));
    EXPECT_FALSE(listing.has({SHFE_2PS, 16369}));
    EXPECT_FALSE(listing.has({SHFE_2PS, 16384}));
}

TEST(Listing, EdgesComeOnlyWhenTheyAreWanted) {
    const Listing listing = Listing::make({.shfe = 4, .ine = 2});
    EXPECT_EQ(listing.rows(SHFE_2PS), 4U);
    EXPECT_EQ(listing.rows(INE_4PS), 2U);
    EXPECT_EQ(listing.find("x"), nullptr);
}

}  // namespace
}  // namespace kova::sim
