// Snapshots of the simulated exchange with a message near or above 64 KiB, from its frames to the card's
// tables.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "card/bring_up_test.h"
#include "sim/exchange/listing.h"
#include "sim/exchange/market.h"
#include "sim/exchange/snapshot_stream.h"

namespace kova::test {
namespace {

using ::testing::Contains;
using ::testing::Not;

const std::string kIgnored = "[W][_TcpHandler]ignore tcp message!";
const std::string kAllOfShfe = "[I][_ParseMdqp]shfe2ps init finished, total instruments:30";
const std::string kAllOfIne = "[I][_ParseMdqp]ine2ps init finished, total instruments:5";

/** Both 2PS feeds, thirty instruments and five. */
class LongMessageTest : public BringUpTest {
 protected:
    LongMessageTest() { sdk().stop(); }

    /** The exchange's first frames: so many cycles of each feed, and a frame to look at them with. */
    void send_cycles(const sim::SnapshotOptions& options, std::uint64_t cycles) {
        sim::SnapshotStream stream(market, options);
        while (stream.cycles(INE_2PS) < cycles) {
            const std::span<const std::byte> frame = stream.next();
            frames.emplace_back(reinterpret_cast<const unsigned char*>(frame.data()), frame.size());
        }
        frames.push_back(frames.back());
    }

    /** Starts with INE's snapshot on this port; SHFE's is on 33022. */
    [[nodiscard]] int start(int ine_port) {
        return engine->KovaStart(
            spi, config("log_level = 7\ninit_tcpcnt = 1\nwait_snap_timeout = 600\nshfe2ps = enabled\n"
                        "ine2ps = enabled\nshfe2ps_snap_port = 33022\nine2ps_snap_port = " +
                        std::to_string(ine_port)));
    }

    template <typename Rows>
    static std::vector<std::string> ids_of(const Rows& rows) {
        std::vector<std::string> ids;
        for (const SInstTableType& row : rows) {
            if (row.inst_id[0] != '\0') {
                ids.emplace_back(row.inst_id);
            }
        }
        return ids;
    }

    std::vector<std::string> listed(EMDQPDataType feed) const {
        std::vector<std::string> ids;
        for (const sim::Instrument& instrument : listing.of(feed)) {
            ids.emplace_back(instrument.id());
        }
        return ids;
    }

    void expect_all_rows() {
        EXPECT_EQ(ids_of(card->memory().tables.shfe_2ps), listed(SHFE_2PS));
        EXPECT_EQ(ids_of(card->memory().tables.ine_2ps), listed(INE_2PS));
        EXPECT_EQ(card.written(0x1F14), 30U);
        EXPECT_EQ(card.written(0x1F15), 5U);
        EXPECT_EQ(card->forwarding_openings(), 1U);
    }

    /** A feed of the exchange on this port, with a long message in its first cycles. */
    static sim::SnapshotFeed feed_of(EMDQPDataType feed, std::uint16_t port, std::uint64_t long_messages) {
        sim::SnapshotFeed found = sim::SnapshotFeed::of(feed);
        found.client.port = port;
        found.long_messages = long_messages;
        return found;
    }

    sim::Listing listing = sim::Listing::make({.shfe = 30, .ine = 5});
    sim::Market market{listing};
};

TEST_F(LongMessageTest, OneBelow64KiBIsTakenInItsCycle) {
    send_cycles(
        {.feeds = {feed_of(SHFE_2PS, 33022, 1), feed_of(INE_2PS, 33023, 1)}, .long_message_bytes = 60001}, 1);
    ASSERT_EQ(start(33023), 0);
    expect_all_rows();
    const Strings log = new_log();
    EXPECT_THAT(log, Not(Contains(kIgnored)));
    EXPECT_THAT(log, Contains(kAllOfShfe));
    EXPECT_THAT(log, Contains(kAllOfIne));
}

TEST_F(LongMessageTest, OneAbove64KiBIsGivenUpAndTheNextCycleIsTaken) {
    // Behind the header of eight bytes this is the least that makes 65536.
    send_cycles(
        {.feeds = {feed_of(SHFE_2PS, 33022, 2), feed_of(INE_2PS, 33023, 1)}, .long_message_bytes = 65528}, 3);
    ASSERT_EQ(start(33023), 0);
    expect_all_rows();
    const Strings log = new_log();
    // Two of SHFE, one of INE; then each feed is finished once, INE first.
    EXPECT_EQ(std::ranges::count(log, kIgnored), 3);
    const auto shfe = std::ranges::find(log, kAllOfShfe);
    const auto ine = std::ranges::find(log, kAllOfIne);
    ASSERT_NE(shfe, log.end());
    ASSERT_NE(ine, log.end());
    EXPECT_LT(ine, shfe);
    EXPECT_EQ(std::ranges::count(ine, log.end(), kIgnored), 0);
}

TEST_F(LongMessageTest, OneWithoutItsCyclesEndIsNoSnapshot) {
    send_cycles({.feeds = {feed_of(SHFE_2PS, 33022, 1), feed_of(INE_2PS, 33023, 0)}}, 1);
    ASSERT_EQ(start(33023), -2);
    const Strings log = new_log();
    EXPECT_EQ(std::ranges::count(log, kIgnored), 1);
    EXPECT_THAT(log, Contains(kAllOfIne));
    EXPECT_THAT(log, Not(Contains(kAllOfShfe)));
}

// The port stays noted for the feed that was given up, so that the other feed's snapshot is taken for it.
TEST_F(LongMessageTest, OnAPortOfBothFeedsTheOtherFeedsSnapshotIsTakenForTheOneGivenUp) {
    send_cycles({.feeds = {feed_of(SHFE_2PS, 33022, 1), feed_of(INE_2PS, 33022, 0)}}, 2);
    ASSERT_EQ(start(33022), 0);
    const Strings log = new_log();
    EXPECT_EQ(std::ranges::count(log, kIgnored), 1);
    EXPECT_THAT(log, Contains("[I][_ParseMdqp]shfe2ps init finished, total instruments:5"));
    EXPECT_THAT(log, Contains(kAllOfIne));
    EXPECT_EQ(ids_of(card->memory().tables.shfe_2ps), listed(INE_2PS));
    EXPECT_EQ(ids_of(card->memory().tables.ine_2ps), listed(INE_2PS));
    EXPECT_EQ(card.written(0x1F14), 5U);
}

}  // namespace
}  // namespace kova::test
