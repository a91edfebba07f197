// Instruments at the ends of what feeds and tables hold, by scenario: identifiers of each length, the first row
// and the last one, from the exchange's frames to the card's tables and to a receiver.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "card/bring_up_test.h"
#include "sim/exchange/listing.h"
#include "sim/exchange/market.h"
#include "sim/exchange/scenario.h"
#include "sim/exchange/snapshot_stream.h"

namespace kova::test {
namespace {

using ::testing::ElementsAre;

constexpr std::array<const char*, 15> kShfeIds = {
    "x",           "x2",           "x23",           "x234",           "x2345",
    "x23456",      "x234567",      "x2345678",      "x23456789",      "x234567890",
    "x2345678901", "x23456789012", "x234567890123", "x2345678901234", "x23456789012345"};
constexpr std::array<const char*, 15> kIneIds = {
    "y",           "y2",           "y23",           "y234",           "y2345",
    "y23456",      "y234567",      "y2345678",      "y23456789",      "y234567890",
    "y2345678901", "y23456789012", "y234567890123", "y2345678901234", "y23456789012345"};

class EdgeInstrumentsTest : public BringUpTest {
 protected:
    EdgeInstrumentsTest() {
        sdk().stop();
        sim::SnapshotStream stream(market, sim::snapshot_options(scenario, sim::select(scenario, listing)));
        while (stream.cycles(INE_2PS) == 0) {
            const std::span<const std::byte> frame = stream.next();
            frames.emplace_back(reinterpret_cast<const unsigned char*>(frame.data()), frame.size());
        }
        frames.push_back(frames.back());
    }

    /** Moves the market until each instrument of the edges has quoted; what the receiver got. */
    std::set<std::string> receive_quotes() {
        std::set<std::string> received;
        for (int i = 0; i < 20'000 && received.size() < 2 * kShfeIds.size(); ++i) {
            const sim::Quote quote = market.next();
            card->route_quote(quote.feed, quote.record);
            KovaShfeMdType record{};
            if (engine->KovaRecv(record) == 1) {
                received.insert(record.inst_id);
                highest[static_cast<std::size_t>(quote.feed)].insert(record.max_inst_no);
            }
        }
        return received;
    }

    std::array<std::set<std::uint32_t>, MDQP_FEED_COUNT> highest;  // numbers that quotes of a feed told
    sim::Scenario scenario = sim::Scenario::parse("listing = { shfe = 3, ine = 2, edges = true }", "edges");
    sim::Listing listing = sim::Listing::make(scenario.listing);
    sim::Market market{listing};
};

template <typename Rows>
void expect_rows(const Rows& rows, const std::array<const char*, 15>& ids) {
    const std::size_t first = rows.size() - 14;
    EXPECT_STREQ(rows[0].inst_id, ids[0]);
    for (std::size_t i = 1; i < ids.size(); ++i) {
        const SInstTableType& row = rows[first + i - 1];
        EXPECT_STREQ(row.inst_id, ids[i]);
        EXPECT_EQ(row.config, 0x80000001U) << ids[i];
        EXPECT_EQ(row.change_no, 1U) << ids[i];
        EXPECT_GT(row.last_price, 0) << ids[i];
    }
    EXPECT_STREQ(rows[first - 1].inst_id, "");
}

TEST_F(EdgeInstrumentsTest, OfEachLengthAndTheLastRowsArriveInTheTablesAndQuote) {
    // The counts as they are for the instrument file and channel 0. The other channels have no instruments, and
    // to read all rows for each of them would take its time.
    RegisterTraffic::answer(0x1F14, {16384, 16384, 0});
    RegisterTraffic::answer(0x1F15, {4096, 4096, 0});
    std::string insts;
    std::set<std::string> expected;
    for (const auto& ids : {kShfeIds, kIneIds}) {
        for (const std::string id : ids) {
            insts += (insts.empty() ? "" : ",") + id;
            expected.insert(id);
        }
    }
    ASSERT_EQ(engine->KovaStart(config("log_level = 7\ninit_tcpcnt = 1\nshfe2ps = enabled\nine2ps = enabled\n"
                                       "[channel0]\ninsts = " +
                                       insts)),
              0);
    expect_rows(card->memory().tables.shfe_2ps, kShfeIds);
    expect_rows(card->memory().tables.ine_2ps, kIneIds);
    EXPECT_STREQ(card->memory().tables.shfe_2ps[16383].inst_id, "x23456789012345");
    EXPECT_STREQ(card->memory().tables.ine_2ps[4095].inst_id, "y23456789012345");
    EXPECT_EQ(card.written(0x1F14), 16384U);
    EXPECT_EQ(card.written(0x1F15), 4096U);
    EXPECT_EQ(receive_quotes(), expected);
    EXPECT_THAT(highest[SHFE_2PS], ElementsAre(16383U));
    EXPECT_THAT(highest[INE_2PS], ElementsAre(4095U));
}

}  // namespace
}  // namespace kova::test
