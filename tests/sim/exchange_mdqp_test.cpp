#include "sim/exchange/mdqp_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/exchange/price_fault.h"
#include "sim/snapshot_reader.h"

namespace kova::sim {
namespace {

using test::Bytes;
using test::bytes_of;
using test::hex;
using test::little;
using testing::ElementsAre;
using testing::IsEmpty;

/** The largest finite double, as the bytes go out. */
const std::string kNoValueHex = "FFFFFFFFFFFFEF7F";

/** A copper option on the first instrument of a listing of one, at prices that are easy to follow. */
class MdqpFields : public testing::Test {
 protected:
    MdqpFields() {
        std::strcpy(option_.id_chars.data(), "cu2501C75000");
        option_.ref = {.feed = SHFE_2PS, .inst_no = 7};
        option_.kind = InstrumentKind::option;
        option_.is_call = true;
        option_.tick = 200;
        option_.multiplier = 5;
        option_.pre_settlement = 50000;
        option_.upper_limit = 60000;
        option_.lower_limit = 200;
        option_.codec_price = 50000;
        option_.strike = 7500000;
        option_.pre_open_interest = 321;

        state_.volume = 12;
        state_.last_px = 50050;
        state_.high_price = 51000;
        state_.low_price = 49925;
        state_.turnover = 300300050;
        state_.open_interest = 4711;
        state_.change_no = 99;
        state_.update_time = 93015;
        state_.update_milli_sec = 500;
        state_.bid1_px = 50000;
        state_.bid1_vol = 3;
        state_.bid2_px = 49800;
        state_.bid2_vol = 4;
        state_.ask1_px = 50200;
        state_.ask1_vol = 5;
        state_.bid_volume = 70;
        state_.bid_amount = 350000025;
        state_.ask_volume = 80;
        state_.ask_amount = 401600000;
    }

    static Listing one_future() {
        ListingOptions options;
        options.shfe = 1;
        options.ine = 0;
        return Listing::make(options);
    }

    InstrumentFields fields() const { return fields_of(listing_, option_, state_); }

    Listing listing_ = one_future();
    Instrument option_;
    KovaShfeMdType state_{};
};

std::vector<double> prices(const InstrumentFields& fields) {
    std::vector<double> found;
    for (const price_detail_t& level : fields.levels()) {
        found.push_back(+level.price);
    }
    return found;
}

std::string directions(const InstrumentFields& fields) {
    std::string found;
    for (const price_detail_t& level : fields.levels()) {
        found += level.direction;
    }
    return found;
}

// ---------------------------------------------------------------- messages, byte for byte

TEST(MdqpWriter, TheOpeningMessageCarriesTopicAndNumber) {
    std::vector<std::byte> out;
    write_opening(out, 1000, 0x01020304);
    EXPECT_EQ(bytes_of(out), hex("11 32 3200 00000000"
                                 "0110 0600 E803 04030201"
                                 "0210 2400" +
                                 std::string(72, '0')));
    EXPECT_EQ(out.size(), 58U);
}

TEST(MdqpWriter, TheClosingMessageCarriesThePacketNumberAheadOfItsLastEightBytes) {
    std::vector<std::byte> out;
    write_closing(out, 0x0A0B0C0D);
    EXPECT_EQ(bytes_of(out), hex("01 32 1800 00000000"
                                 "0410 0400 0D0C0B0A"
                                 "0210 0C00 000000000000000000000000"));
}

TEST(MdqpWriter, AMessageIsAppendedWithItsLength) {
    std::vector<std::byte> out(3, std::byte{0xEE});
    MdqpWriter message(out);
    message.begin(0x11);
    message.field(MDQP_FIELD_PRICE_DETAIL,
                  price_detail_t{.inst_no = 258, .direction = '1', .price = 12.5, .volume = 7});
    message.field(MDQP_FIELD_ORDER_STATISTICS,
                  order_statistics_info_t{
                      .inst_no = 258, .bid_volume = 1, .bid_amount = -2, .ask_volume = 3, .ask_amount = 0.25});
    message.end();
    EXPECT_EQ(bytes_of(out), hex("EEEEEE 11 32 3500 00000000"
                                 "0301 1100 02010000 31 0000000000002940 07000000"
                                 "0401 1C00 02010000 01000000 00000000000000C0 03000000 000000000000D03F"));
    EXPECT_EQ(message.bytes(), 61U);
}

TEST(MdqpWriter, AMessageTooLongForItsLengthIsRefused) {
    std::vector<std::byte> out;
    MdqpWriter message(out);
    message.begin(0x11);
    message.filler(MDQP_FIELD_1002, 65531);
    EXPECT_NO_THROW(message.end());
    EXPECT_EQ(little<std::uint16_t>(bytes_of(out), 2), 65535U);
    message.filler(MDQP_FIELD_1003, 0);
    EXPECT_THROW(message.end(), std::length_error);
}

// ---------------------------------------------------------------- fields

TEST_F(MdqpFields, WhatDoesNotChangeIsInTheFirstField) {
    std::vector<std::byte> out;
    MdqpWriter message(out);
    message.begin(0x11);
    message.field(MDQP_FIELD_INST_INFO, fields().info);
    const Bytes bytes = bytes_of(out);
    ASSERT_EQ(bytes.size(), 8U + 4 + 112);
    const Bytes body = test::part(bytes, 12, 112);
    EXPECT_EQ(std::string(body.begin(), body.begin() + 13), std::string("cu2501C75000\0", 13));
    const std::string underlying(listing_.instruments()[0].id());
    EXPECT_EQ(std::string(body.begin() + 31, body.begin() + 37), underlying);
    EXPECT_EQ(body[62], '2');
    EXPECT_EQ(little<double>(body, 63), 75000);
    EXPECT_EQ(body[71], '1');
    EXPECT_EQ(little<std::int32_t>(body, 72), 5);
    EXPECT_EQ(little<double>(body, 76), 1);
    EXPECT_EQ(little<std::int32_t>(body, 84), 1);
    EXPECT_EQ(std::string(body.begin() + 88, body.begin() + 92), std::string("CNY\0", 4));
    EXPECT_EQ(little<double>(body, 92), 2);
    EXPECT_EQ(little<double>(body, 100), 500);
    EXPECT_EQ(little<std::int32_t>(body, 108), 7);
}

TEST_F(MdqpFields, WhatIsTradedIsInTheSecondField) {
    std::vector<std::byte> out;
    MdqpWriter message(out);
    message.begin(0x11);
    message.field(MDQP_FIELD_DEAL_INFO, fields().deal);
    const Bytes bytes = bytes_of(out);
    ASSERT_EQ(bytes.size(), 8U + 4 + 154);
    const Bytes body = test::part(bytes, 12, 154);
    EXPECT_EQ(little<std::int32_t>(body, 0), 7);
    EXPECT_EQ(little<double>(body, 4), 500.5);
    EXPECT_EQ(little<std::int32_t>(body, 12), 12);
    EXPECT_EQ(little<double>(body, 16), 3003000.5);
    EXPECT_EQ(little<double>(body, 24), 4711);
    EXPECT_EQ(little<double>(body, 32), 510);
    EXPECT_EQ(little<double>(body, 40), 499.25);
    EXPECT_EQ(little<double>(body, 48), 500);
    EXPECT_EQ(test::part(body, 56, 16), hex(kNoValueHex + kNoValueHex));
    EXPECT_EQ(little<double>(body, 72), 600);
    EXPECT_EQ(little<double>(body, 80), 2);
    EXPECT_EQ(little<double>(body, 88), 500);
    EXPECT_EQ(little<double>(body, 96), 500);
    EXPECT_EQ(little<double>(body, 104), 321);
    EXPECT_EQ(test::part(body, 112, 16), hex(kNoValueHex + kNoValueHex));
    EXPECT_EQ(std::string(body.begin() + 128, body.begin() + 137), std::string("20241118\0", 9));
    EXPECT_EQ(std::string(body.begin() + 137, body.begin() + 146), std::string("09:30:15\0", 9));
    EXPECT_EQ(little<std::int32_t>(body, 146), 500);
    EXPECT_EQ(little<std::int32_t>(body, 150), 99);
}

TEST_F(MdqpFields, AnInstrumentThatNeverTradedHasNoValues) {
    state_.volume = 0;
    const deal_info_t deal = fields().deal;
    EXPECT_EQ(+deal.last_price, std::numeric_limits<double>::max());
    EXPECT_EQ(+deal.highest_price, std::numeric_limits<double>::max());
    EXPECT_EQ(+deal.lowest_price, std::numeric_limits<double>::max());
    EXPECT_EQ(+deal.open_price, std::numeric_limits<double>::max());
    EXPECT_EQ(+deal.upper_limit_price, 600);
}

TEST_F(MdqpFields, PastMidnightTheDayIsTheNext) {
    state_.update_time = 250001;
    const deal_info_t deal = fields().deal;
    EXPECT_STREQ(deal.action_day, "20241119");
    EXPECT_STREQ(deal.update_time, "01:00:01");
}

TEST_F(MdqpFields, LevelsAreThoseWithOrdersBidsFirst) {
    EXPECT_EQ(directions(fields()), "001");
    EXPECT_THAT(prices(fields()), ElementsAre(500, 498, 502));
    EXPECT_EQ(+fields().levels()[1].volume, 4);
    EXPECT_EQ(+fields().levels()[2].inst_no, 7);
}

TEST_F(MdqpFields, ABookWithoutOrdersHasNoLevels) {
    state_.bid1_vol = state_.bid2_vol = state_.ask1_vol = 0;
    EXPECT_THAT(prices(fields()), IsEmpty());
}

TEST_F(MdqpFields, DistancesOfZeroAndBelowAreLevelsToo) {
    option_.kind = InstrumentKind::tas;
    state_.bid1_px = 0;
    state_.bid2_px = -200;
    EXPECT_THAT(prices(fields()), ElementsAre(0, -2, 502));
    EXPECT_EQ(fields().info.product_class, '7');
    EXPECT_EQ(+fields().info.strike_price, std::numeric_limits<double>::max());
}

TEST_F(MdqpFields, OrderStatisticsAreTheTotals) {
    const order_statistics_info_t orders = fields().orders;
    EXPECT_EQ(+orders.inst_no, 7);
    EXPECT_EQ(+orders.bid_volume, 70);
    EXPECT_EQ(+orders.bid_amount, 3500000.25);
    EXPECT_EQ(+orders.ask_volume, 80);
    EXPECT_EQ(+orders.ask_amount, 4016000);
}

TEST_F(MdqpFields, TheRunOfLevelsStandsBetweenOtherFields) {
    std::vector<std::byte> out;
    MdqpWriter message(out);
    message.begin(0x11);
    message.instrument(fields());
    message.instrument(fields());
    message.end();
    EXPECT_EQ(out.size(), 8 + 2 * fields().bytes());
    const std::vector<test::ReadMessage> read = test::read_messages(bytes_of(out));
    ASSERT_EQ(read.size(), 1U);
    std::vector<int> ids;
    for (const test::ReadField& field : read[0].fields) {
        ids.push_back(field.id);
    }
    EXPECT_THAT(
        ids, ElementsAre(0x101, 0x102, 0x103, 0x103, 0x103, 0x104, 0x101, 0x102, 0x103, 0x103, 0x103, 0x104));
}

// ---------------------------------------------------------------- faults

using PriceFaults = MdqpFields;

InstrumentFields spoiled(InstrumentFields fields, PriceFault fault) {
    spoil(fields, fault);
    return fields;
}

TEST_F(PriceFaults, NoneChangesNothing) {
    EXPECT_THAT(prices(spoiled(fields(), PriceFault::none)), ElementsAre(500, 498, 502));
}

TEST_F(PriceFaults, CrossedPutsTheBestBidAtTheBestAsk) {
    EXPECT_THAT(prices(spoiled(fields(), PriceFault::crossed)), ElementsAre(502, 498, 502));
}

TEST_F(PriceFaults, CrossedGivesABookWithoutAsksOne) {
    state_.ask1_vol = 0;
    const InstrumentFields crossed = spoiled(fields(), PriceFault::crossed);
    EXPECT_THAT(prices(crossed), ElementsAre(500, 498, 500));
    EXPECT_EQ(directions(crossed), "001");
}

TEST_F(PriceFaults, CrossedGivesABookWithoutBidsOne) {
    state_.bid1_vol = state_.bid2_vol = 0;
    const InstrumentFields crossed = spoiled(fields(), PriceFault::crossed);
    EXPECT_THAT(prices(crossed), ElementsAre(502, 502));
    EXPECT_EQ(directions(crossed), "01");
}

TEST_F(PriceFaults, BeyondLimitsIsATickAboveTheUpperOne) {
    EXPECT_THAT(prices(spoiled(fields(), PriceFault::beyond_limits)), ElementsAre(500, 498, 602));
}

TEST_F(PriceFaults, ABookWithoutOrdersStaysEmpty) {
    state_.bid1_vol = state_.bid2_vol = state_.ask1_vol = 0;
    EXPECT_THAT(prices(spoiled(fields(), PriceFault::crossed)), IsEmpty());
    EXPECT_THAT(prices(spoiled(fields(), PriceFault::beyond_limits)), IsEmpty());
}

TEST_F(PriceFaults, NoValueReplacesEveryPriceAndAmount) {
    const InstrumentFields without = spoiled(fields(), PriceFault::no_value);
    constexpr double none = std::numeric_limits<double>::max();
    EXPECT_THAT(prices(without), ElementsAre(none, none, none));
    for (const double value :
         {+without.deal.last_price, +without.deal.turnover, +without.deal.highest_price,
          +without.deal.lowest_price, +without.deal.upper_limit_price, +without.deal.lower_limit_price,
          +without.orders.bid_amount, +without.orders.ask_amount}) {
        EXPECT_EQ(value, none);
    }
    EXPECT_EQ(+without.info.price_tick, 2);
    EXPECT_EQ(+without.deal.volume, 12);
}

TEST_F(PriceFaults, NanInfiniteAndNegativeAreWhatTheySay) {
    EXPECT_TRUE(std::isnan(+spoiled(fields(), PriceFault::nan).deal.last_price));
    EXPECT_TRUE(std::isnan(prices(spoiled(fields(), PriceFault::nan))[2]));
    EXPECT_TRUE(std::isinf(+spoiled(fields(), PriceFault::infinite).orders.ask_amount));
    EXPECT_THAT(prices(spoiled(fields(), PriceFault::negative)), ElementsAre(-500, -498, -502));
}

}  // namespace
}  // namespace kova::sim
