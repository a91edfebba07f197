// A trading day's whole listing from the exchange's frames to the card's tables, on a good network and on a bad
// one.

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "card/engine_test.h"
#include "sim/exchange/impairments.h"
#include "sim/exchange/listing.h"
#include "sim/exchange/market.h"
#include "sim/exchange/snapshot_stream.h"

namespace {

using kova::sim::Impairment;
using kova::sim::ImpairmentOptions;
using kova::sim::Impairments;
using kova::sim::Instrument;
using kova::sim::Listing;
using kova::sim::Market;
using kova::sim::SnapshotFeed;
using kova::sim::SnapshotOptions;
using kova::sim::SnapshotStream;

/** Hundredths after their way as a double: half a hundredth is added and the rest is cut towards zero. */
template <typename Integer>
Integer rounded(Integer hundredths) {
    return hundredths < 0 ? hundredths + 1 : hundredths;
}

struct Level {
    std::int32_t price = 0;
    std::uint32_t volume = 0;
};

/** The five slots of a side once its levels have come, best first: only a slot with a positive price is taken.
 */
std::array<Level, 5> slots_of(const std::array<Level, 5>& levels, bool is_bid) {
    std::array<Level, 5> slots{};
    for (const Level& level : levels) {
        if (level.volume == 0) {
            continue;
        }
        const Level coming{rounded(level.price), level.volume};
        std::size_t i = 0;
        while (i < 4 && slots[i].price > 0 &&
               (is_bid ? slots[i].price > coming.price : slots[i].price < coming.price)) {
            ++i;
        }
        slots[i] = coming;
    }
    return slots;
}

/** The row that an instrument's state ends in. */
SInstTableType expected_row(const Instrument& instrument, const KovaShfeMdType& state) {
    const std::array<Level, 5> bids = slots_of({{{state.bid1_px, state.bid1_vol},
                                                 {state.bid2_px, state.bid2_vol},
                                                 {state.bid3_px, state.bid3_vol},
                                                 {state.bid4_px, state.bid4_vol},
                                                 {state.bid5_px, state.bid5_vol}}},
                                               true);
    const std::array<Level, 5> asks = slots_of({{{state.ask1_px, state.ask1_vol},
                                                 {state.ask2_px, state.ask2_vol},
                                                 {state.ask3_px, state.ask3_vol},
                                                 {state.ask4_px, state.ask4_vol},
                                                 {state.ask5_px, state.ask5_vol}}},
                                               false);
    SInstTableType row{};
    row.price_tick = instrument.tick;
    row.codec_price = rounded(instrument.codec_price);
    row.vol_multiple = instrument.multiplier;
    row.change_no = state.change_no;
    row.update_mill_sec = state.update_milli_sec;
    row.bid1_price = bids[0].price;
    row.bid1_vol = bids[0].volume;
    row.bid2_price = bids[1].price;
    row.bid2_vol = bids[1].volume;
    row.bid3_price = bids[2].price;
    row.bid3_vol = bids[2].volume;
    row.bid4_price = bids[3].price;
    row.bid4_vol = bids[3].volume;
    row.bid5_price = bids[4].price;
    row.bid5_vol = bids[4].volume;
    row.ask1_price = asks[0].price;
    row.ask1_vol = asks[0].volume;
    row.ask2_price = asks[1].price;
    row.ask2_vol = asks[1].volume;
    row.ask3_price = asks[2].price;
    row.ask3_vol = asks[2].volume;
    row.ask4_price = asks[3].price;
    row.ask4_vol = asks[3].volume;
    row.ask5_price = asks[4].price;
    row.ask5_vol = asks[4].volume;
    row.open_interest = static_cast<std::uint64_t>(state.open_interest);
    row.turnover = static_cast<std::uint64_t>(state.turnover);
    row.volume = state.volume;
    row.last_price = rounded(state.last_px);
    std::memcpy(row.inst_id, instrument.id_chars.data(), sizeof(row.inst_id));
    row.upper_limit_price = rounded(instrument.upper_limit);
    row.lower_limit_price = rounded(instrument.lower_limit);
    row.bid_volume = state.bid_volume;
    row.bid_amount = rounded(state.bid_amount);
    row.ask_volume = state.ask_volume;
    row.ask_amount = rounded(state.ask_amount);
    row.high_price = rounded(state.high_price);
    row.low_price = rounded(state.low_price);
    return row;
}

class FullListingTest : public kova::test::EngineTest {
 protected:
    FullListingTest() {
        EXPECT_EQ(EngineAccess::registers(*engine).Init(0, 474), 0);
        U50ConfigInfo& config = EngineAccess::config(*engine);
        config.log_level = static_cast<ELOGLEVEL>(0);
        CCommonLog::GetInstance()->SetLogLevel(config.log_level);
        config.enabled_mask.enabled_mask = 0x05;
        config.topicID = {SnapshotFeed::of(SHFE_2PS).topic_id, SnapshotFeed::of(SHFE_4PS).topic_id,
                          SnapshotFeed::of(INE_2PS).topic_id, SnapshotFeed::of(INE_4PS).topic_id};
        config.snapTcpPort = {33022, 22000, 33022, 22000};
        sdk().stop();
        for (int i = 0; i < 50'000; ++i) {
            market.next();
        }
    }

    /** Hands over frames until the snapshot is complete; how many of them. */
    std::optional<int> take_snapshot(kova::sim::FrameSource& source, int most_frames) {
        std::vector<std::uint8_t> message;
        for (int frames = 1; frames <= most_frames; ++frames) {
            const std::span<const std::byte> frame = source.next();
            message.assign({2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
            for (const std::byte byte : frame) {
                message.push_back(static_cast<std::uint8_t>(byte));
            }
            EngineAccess::tcp_handler(message.data(), static_cast<unsigned>(message.size()), engine.get());
            if (EngineAccess::is_tcp_init_finished(*engine)) {
                return frames;
            }
        }
        return std::nullopt;
    }

    template <typename Rows>
    void expect_rows(const Rows& rows, EMDQPDataType feed) const {
        const std::span<const Instrument> instruments = listing.of(feed);
        for (std::size_t i = 0; i < rows.size(); ++i) {
            const SInstTableType expected = i < instruments.size()
                                                ? expected_row(instruments[i], market.state(instruments[i].ref))
                                                : SInstTableType{};
            ASSERT_EQ(std::memcmp(&rows[i], &expected, sizeof expected), 0)
                << "row " << i << ", " << (i < instruments.size() ? instruments[i].id() : "none");
        }
    }

    void expect_card_has_everything() {
        const kova::sim::ContractTables& tables = card->memory().tables;
        expect_rows(tables.shfe_2ps, SHFE_2PS);
        expect_rows(tables.ine_2ps, INE_2PS);
        const SInstTableType empty{};
        for (const SInstTableType& row : tables.shfe_4ps) {
            ASSERT_EQ(std::memcmp(&row, &empty, sizeof empty), 0);
        }
        for (const SInstTableType& row : tables.ine_4ps) {
            ASSERT_EQ(std::memcmp(&row, &empty, sizeof empty), 0);
        }
        EXPECT_EQ(card.written(0x1F14), listing.count(SHFE_2PS));
        EXPECT_EQ(card.written(0x1F15), listing.count(INE_2PS));
        EXPECT_EQ(card.written(0x11110), 123456U);
        EXPECT_EQ(card.written(0x11111), 654321U);
        EXPECT_EQ(card.written(0x1000), 0U);
        EXPECT_EQ(EngineAccess::inst_count(*engine).shfe_inst_cnt_2ps, listing.count(SHFE_2PS));
        EXPECT_EQ(EngineAccess::inst_count(*engine).ine_inst_cnt_2ps, listing.count(INE_2PS));
        EXPECT_TRUE(EngineAccess::price_error_inst_ids(*engine).empty());
    }

    static SnapshotStream stream_of(const Market& market, const SnapshotOptions& options = {}) {
        return SnapshotStream(market, options);
    }

    Listing listing = Listing::make({});
    Market market{listing};
};

TEST_F(FullListingTest, ArrivesWholeInOneCycle) {
    ASSERT_GT(listing.count(SHFE_2PS), 11'000U);
    ASSERT_GT(listing.count(INE_2PS), 1'300U);
    SnapshotStream stream(market);
    stream.set_packet_no(SHFE_2PS, 123456);
    stream.set_packet_no(INE_2PS, 654321);
    card.preset(0x1000, 0xF);
    const std::optional<int> frames = take_snapshot(stream, 10'000);
    ASSERT_TRUE(frames);
    EXPECT_EQ(stream.cycles(SHFE_2PS), 1U);
    EXPECT_EQ(stream.cycles(INE_2PS), 1U);
    EXPECT_EQ(stream.frames(), static_cast<std::uint64_t>(*frames));
    expect_card_has_everything();
}

TEST_F(FullListingTest, ArrivesWholeOverANetworkThatSwapsDuplicatesAndRetransmits) {
    SnapshotStream stream(market);
    stream.set_packet_no(SHFE_2PS, 123456);
    stream.set_packet_no(INE_2PS, 654321);
    ImpairmentOptions bad;
    bad.rates[static_cast<std::size_t>(Impairment::swap)] = 0.01;
    bad.rates[static_cast<std::size_t>(Impairment::duplicate)] = 0.01;
    bad.rates[static_cast<std::size_t>(Impairment::retransmit)] = 0.001;
    Impairments network(stream, bad);
    const std::optional<int> frames = take_snapshot(network, 100'000);
    ASSERT_TRUE(frames);
    EXPECT_GT(network.struck(Impairment::swap), 10U);
    EXPECT_GT(network.struck(Impairment::duplicate), 10U);
    EXPECT_GT(network.struck(Impairment::retransmit), 0U);
    RecordProperty("cycles", static_cast<int>(stream.cycles(INE_2PS)));
    expect_card_has_everything();
}

}  // namespace
