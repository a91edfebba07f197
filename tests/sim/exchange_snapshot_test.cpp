#include "sim/exchange/snapshot_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <set>
#include <stdexcept>
#include <vector>

#include "sim/snapshot_reader.h"
#include "support/allocations.h"

namespace kova::sim {
namespace {

using test::Bytes;
using test::ReadFrame;
using test::ReadMessage;
using testing::Each;
using testing::ElementsAre;

Listing small_listing() {
    ListingOptions options;
    options.shfe = 64;
    options.ine = 16;
    return Listing::make(options);
}

/** A market of 64 and 16 instruments that has moved for a while. */
struct SmallMarket {
    Listing listing = small_listing();
    Market market{listing, {.seed = 3}};

    SmallMarket() {
        for (int i = 0; i < 5000; ++i) {
            market.next();
        }
    }
};

class SnapshotStreamTest : public testing::Test {
 protected:
    SmallMarket small_;
    Market& market_ = small_.market;
};

ReadFrame read_next(SnapshotStream& stream) {
    return test::read_frame(test::bytes_of(stream.next()));
}

/** The payloads of one feed's cycle. */
using Cycle = std::vector<Bytes>;

/** The frames up to the end of the cycle at hand. */
std::vector<ReadFrame> read_cycle_frames(SnapshotStream& stream) {
    std::vector<ReadFrame> frames;
    do {
        frames.push_back(read_next(stream));
    } while (!stream.at_cycle_start());
    return frames;
}

Cycle read_cycle(SnapshotStream& stream) {
    Cycle payloads;
    for (ReadFrame& frame : read_cycle_frames(stream)) {
        payloads.push_back(std::move(frame.payload));
    }
    return payloads;
}

Bytes joined(const Cycle& cycle) {
    Bytes bytes;
    for (const Bytes& payload : cycle) {
        bytes.insert(bytes.end(), payload.begin(), payload.end());
    }
    return bytes;
}

std::vector<ReadMessage> messages_of(const Cycle& cycle) {
    return test::read_messages(joined(cycle));
}

SnapshotOptions only(EMDQPDataType feed) {
    SnapshotOptions options;
    options.feeds = {SnapshotFeed::of(feed)};
    return options;
}

/** Where segments end in the cycle. */
std::vector<std::size_t> cuts_of(const Cycle& cycle) {
    std::vector<std::size_t> cuts;
    std::size_t at = 0;
    for (const Bytes& payload : cycle) {
        cuts.push_back(at += payload.size());
    }
    return cuts;
}

/** How far each message end but the last lies before the next cut behind it, 0 if it is one itself. */
std::vector<std::size_t> bytes_to_cut(const Cycle& cycle) {
    const std::vector<std::size_t> cuts = cuts_of(cycle);
    std::vector<std::size_t> distances;
    for (const ReadMessage& message : messages_of(cycle)) {
        const std::size_t end = message.offset + message.size;
        if (end != cuts.back()) {
            distances.push_back(*std::ranges::lower_bound(cuts, end) - end);
        }
    }
    return distances;
}

void expect_rows(const Market& market, EMDQPDataType feed, const std::map<std::int32_t, SInstTableType>& rows) {
    ASSERT_EQ(rows.size(), market.listing().count(feed));
    for (const Instrument& instrument : market.listing().of(feed)) {
        SInstTableType expected = market.fill_row(instrument);
        expected.updatetime = 0;  // no number in the snapshot
        const SInstTableType& row = rows.at(static_cast<std::int32_t>(instrument.ref.inst_no));
        EXPECT_EQ(std::memcmp(&row, &expected, sizeof row), 0) << instrument.id();
    }
}

// ---------------------------------------------------------------- what a cycle says

TEST_F(SnapshotStreamTest, ACycleHoldsTheRowsOfEveryInstrument) {
    SnapshotStream stream(market_);
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS}) {
        test::RowReader reader;
        reader.read(messages_of(read_cycle(stream)));
        expect_rows(market_, feed, reader.rows);
    }
}

TEST_F(SnapshotStreamTest, TheFeedsOfFourASecondHaveTheSameRows) {
    SnapshotStream stream(market_, only(INE_4PS));
    test::RowReader reader;
    reader.read(messages_of(read_cycle(stream)));
    expect_rows(market_, INE_4PS, reader.rows);
}

TEST_F(SnapshotStreamTest, ACycleShowsTheMarketOfItsTime) {
    SnapshotStream stream(market_, only(SHFE_2PS));
    read_cycle(stream);
    for (int i = 0; i < 1000; ++i) {
        market_.next();
    }
    test::RowReader reader;
    reader.read(messages_of(read_cycle(stream)));
    expect_rows(market_, SHFE_2PS, reader.rows);
}

TEST_F(SnapshotStreamTest, ACycleOpensAndClosesWithMessagesOfItsFeed) {
    SnapshotStream stream(market_);
    for (std::int32_t round = 1; round <= 3; ++round) {
        for (const std::int16_t topic_id : {std::int16_t{1000}, std::int16_t{5000}}) {
            const std::vector<ReadMessage> messages = messages_of(read_cycle(stream));
            ASSERT_GT(messages.size(), 3U);
            const ReadMessage& first = messages.front();
            EXPECT_EQ(first.flag, 0x11);
            ASSERT_NE(first.find(0x1001), nullptr);
            EXPECT_EQ(first.find(0x1001)->body.size(), 6U);
            EXPECT_EQ(test::little<std::int16_t>(first.find(0x1001)->body, 0), topic_id);
            EXPECT_EQ(test::little<std::int32_t>(first.find(0x1001)->body, 2), round);
            EXPECT_EQ(messages.back().flag, 0x01);
            for (std::size_t i = 1; i + 1 < messages.size(); ++i) {
                EXPECT_EQ(messages[i].flag, 0x11);
                EXPECT_EQ(messages[i].find(0x1001), nullptr);
            }
        }
    }
}

TEST_F(SnapshotStreamTest, TheLastMessageHasThePacketNumberFromTheBeginningOfTheCycle) {
    SnapshotStream stream(market_, only(SHFE_2PS));
    const auto packet_no = [](const Cycle& cycle) {
        return test::little<std::int32_t>(messages_of(cycle).back().find(0x1004)->body, 0);
    };
    stream.set_packet_no(INE_2PS, 5);
    EXPECT_EQ(packet_no(read_cycle(stream)), 0);
    stream.set_packet_no(SHFE_2PS, 77);
    Cycle cycle = {read_next(stream).payload};
    stream.set_packet_no(SHFE_2PS, 78);
    const Cycle rest = read_cycle(stream);
    cycle.insert(cycle.end(), rest.begin(), rest.end());
    EXPECT_EQ(packet_no(cycle), 77);
    EXPECT_EQ(packet_no(read_cycle(stream)), 78);
}

/** A reader compares a field's place with a length that leaves the header out. */
TEST_F(SnapshotStreamTest, NoFieldBeginsInTheLastEightBytesOfAMessage) {
    for (const std::size_t message_bytes : {524U, 1500U, 4096U, 60000U}) {
        SnapshotOptions options;
        options.message_bytes = message_bytes;
        SnapshotStream stream(market_, options);
        for (const ReadMessage& message : messages_of(read_cycle(stream))) {
            EXPECT_LT(message.fields.back().offset, message.size - 8);
        }
    }
}

TEST_F(SnapshotStreamTest, LevelsOfAnInstrumentAreOneRunInOneMessage) {
    SnapshotStream stream(market_, only(SHFE_2PS));
    for (const ReadMessage& message : messages_of(read_cycle(stream))) {
        std::int32_t before = -1;
        for (const test::ReadField& field : message.fields) {
            const bool is_level = field.id == 0x0103;
            const std::int32_t inst_no = is_level ? test::little<std::int32_t>(field.body, 0) : -1;
            EXPECT_TRUE(before == -1 || inst_no == -1 || inst_no == before);
            EXPECT_NE(&field == message.fields.data() && is_level, true)
                << "a run that began in another message";
            before = inst_no;
        }
    }
}

TEST(SnapshotStream, AFeedWithoutInstrumentsHasCyclesToo) {
    ListingOptions listing_options;
    listing_options.shfe = 3;
    listing_options.ine = 0;
    const Listing listing = Listing::make(listing_options);
    const Market market(listing);
    SnapshotStream stream(market, only(INE_2PS));
    const std::vector<ReadMessage> messages = messages_of(read_cycle(stream));
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].flag, 0x11);
    EXPECT_EQ(messages[1].flag, 0x01);
}

TEST(SnapshotStream, AFullListingFitsTheReader) {
    const Listing listing = Listing::make({});
    const Market market(listing);
    SnapshotStream stream(market);
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS}) {
        test::RowReader reader;
        reader.read(messages_of(read_cycle(stream)));
        expect_rows(market, feed, reader.rows);
    }
}

// ---------------------------------------------------------------- frames and connections

TEST_F(SnapshotStreamTest, EveryFrameHasRightChecksumsAndLengths) {
    SnapshotStream stream(market_);
    std::uint64_t bytes = 0;
    for (int i = 0; i < 500; ++i) {
        const Bytes frame = test::bytes_of(stream.next());
        bytes += frame.size();
        ASSERT_GE(frame.size(), 60U);
        ASSERT_LE(frame.size(), 1514U);
        const ReadFrame read = test::read_frame(frame);
        ASSERT_TRUE(read.is_ip_sum_right);
        ASSERT_TRUE(read.is_tcp_sum_right);
        ASSERT_TRUE(read.padding == 0 || frame.size() == 60);
        ASSERT_EQ(read.ip_options + read.tcp_options, 0U);
    }
    EXPECT_EQ(stream.frames(), 500U);
    EXPECT_EQ(stream.bytes(), bytes);
}

TEST_F(SnapshotStreamTest, SequenceNumbersGoOnOverCyclesForEachFeed) {
    SnapshotStream stream(market_);
    std::map<std::uint32_t, std::uint32_t> expected;  // by server
    for (int i = 0; i < 500; ++i) {
        const ReadFrame frame = read_next(stream);
        const auto [known, is_new] = expected.emplace(frame.source, frame.seq);
        if (is_new) {
            EXPECT_LT(frame.seq, 0x80000000U);
        }
        ASSERT_EQ(frame.seq, known->second);
        known->second += static_cast<std::uint32_t>(frame.payload.size());
    }
    EXPECT_EQ(expected.size(), 2U);
    EXPECT_GT(stream.cycles(SHFE_2PS), 3U);
}

TEST_F(SnapshotStreamTest, AGivenSequenceNumberBeginsTheStreamAndWrapsAround) {
    SnapshotOptions options = only(SHFE_2PS);
    options.first_seq = 0xFFFFF000;
    SnapshotStream stream(market_, options);
    std::vector<std::uint32_t> seqs;
    for (int i = 0; i < 4; ++i) {
        const ReadFrame frame = read_next(stream);
        seqs.push_back(frame.seq + static_cast<std::uint32_t>(frame.payload.size()));
        EXPECT_TRUE(i > 0 || frame.seq == 0xFFFFF000);
    }
    EXPECT_THAT(seqs, ElementsAre(0xFFFFF000 + 1460, 0xFFFFF000 + 2 * 1460, 284, 284 + 1460));
}

TEST_F(SnapshotStreamTest, FeedsComeFromServersOfTheirOwnOntoPortsTheyShare) {
    SnapshotOptions options;
    options.order = SnapshotOrder::interleaved;
    options.feeds = {SnapshotFeed::of(SHFE_2PS), SnapshotFeed::of(SHFE_4PS), SnapshotFeed::of(INE_2PS),
                     SnapshotFeed::of(INE_4PS)};
    SnapshotStream stream(market_, options);
    std::vector<std::uint32_t> servers;
    std::vector<std::uint32_t> ports;
    std::vector<std::int16_t> topics;
    for (int i = 0; i < 4; ++i) {
        const ReadFrame frame = read_next(stream);
        servers.push_back(frame.source);
        ports.push_back(frame.port);
        topics.push_back(test::little<std::int16_t>(frame.payload, 12));
        EXPECT_EQ(frame.destination, 0xC6336402U);
    }
    EXPECT_EQ((std::set<std::uint32_t>{servers.begin(), servers.end()}.size()), 4U);
    EXPECT_THAT(ports, ElementsAre(33022, 22000, 33022, 22000));
    EXPECT_THAT(topics, ElementsAre(1000, 1101, 5000, 5101));
}

TEST_F(SnapshotStreamTest, FeedsTakeTurnsByCycles) {
    SnapshotStream stream(market_);
    std::vector<EMDQPDataType> order;
    for (int cycle = 0; cycle < 4; ++cycle) {
        EXPECT_TRUE(stream.at_cycle_start());
        order.push_back(stream.next_feed());
        const std::vector<ReadFrame> frames = read_cycle_frames(stream);
        EXPECT_GT(frames.size(), 1U);
        for (const ReadFrame& frame : frames) {
            EXPECT_EQ(frame.source, frames[0].source);
            EXPECT_EQ(frame.flags, &frame == &frames.back() ? 0x18U : 0x10U);
        }
        EXPECT_EQ(stream.cycles(SHFE_2PS), static_cast<std::uint64_t>(cycle / 2 + 1));
        EXPECT_EQ(stream.cycles(INE_2PS), static_cast<std::uint64_t>((cycle + 1) / 2));
        EXPECT_EQ(stream.cycles(INE_4PS), 0U);
    }
    EXPECT_THAT(order, ElementsAre(SHFE_2PS, INE_2PS, SHFE_2PS, INE_2PS));
}

TEST_F(SnapshotStreamTest, InterleavedFeedsTakeTurnsByFrames) {
    SnapshotOptions options;
    options.order = SnapshotOrder::interleaved;
    SnapshotStream stream(market_, options);
    const std::uint32_t shfe = read_next(stream).source;
    const std::uint32_t ine = read_next(stream).source;
    EXPECT_NE(shfe, ine);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(read_next(stream).source, i % 2 == 0 ? shfe : ine);
    }
    EXPECT_GT(stream.cycles(INE_2PS), stream.cycles(SHFE_2PS));
}

// ---------------------------------------------------------------- cuts

TEST_F(SnapshotStreamTest, NoSegmentEndsInAHeaderOrRightBeforeOne) {
    for (const std::size_t message_bytes : {524U, 1461U, 4096U, 60000U}) {
        for (const std::size_t segment_bytes : {64U, 100U, 523U, 1460U}) {
            SnapshotOptions options = only(SHFE_2PS);
            options.message_bytes = message_bytes;
            options.segments.bytes = segment_bytes;
            SnapshotStream stream(market_, options);
            const Cycle cycle = read_cycle(stream);
            EXPECT_THAT(bytes_to_cut(cycle), Each(testing::Gt(7U)));
            EXPECT_GT(cycle[0].size(), 44U);
            for (const Bytes& payload : cycle) {
                const bool is_full = payload.size() + 8 >= segment_bytes;
                EXPECT_TRUE(payload.size() <= segment_bytes && (is_full || &payload == &cycle.back()));
            }
        }
    }
}

TEST_F(SnapshotStreamTest, MessagesCanBeginSegmentsOfTheirOwn) {
    SnapshotOptions options = only(SHFE_2PS);
    options.segments.rule = SegmentRule::message;
    SnapshotStream stream(market_, options);
    const Cycle cycle = read_cycle(stream);
    EXPECT_THAT(bytes_to_cut(cycle), Each(0U));
    EXPECT_EQ(cycle[0].size(), 58U);
    EXPECT_EQ(cycle[1].size(), 1460U);
}

TEST_F(SnapshotStreamTest, WholeMessagesCanShareSegments) {
    SnapshotOptions options = only(SHFE_2PS);
    options.segments.rule = SegmentRule::packed;
    options.message_bytes = 600;
    SnapshotStream stream(market_, options);
    const Cycle cycle = read_cycle(stream);
    EXPECT_LT(cycle.size(), messages_of(cycle).size() / 2);
    for (const Bytes& payload : cycle) {
        const std::vector<ReadMessage> messages = test::read_messages(payload);
        ASSERT_FALSE(messages.empty());
        EXPECT_EQ(messages.back().offset + messages.back().size, payload.size());
    }
}

TEST_F(SnapshotStreamTest, MessagesAreAsLongAsTheyMayBe) {
    for (const std::size_t message_bytes : {524U, 1500U, 4096U, 20000U}) {
        SnapshotOptions options = only(SHFE_2PS);
        options.message_bytes = message_bytes;
        SnapshotStream stream(market_, options);
        const std::vector<ReadMessage> messages = messages_of(read_cycle(stream));
        for (std::size_t i = 1; i + 2 < messages.size(); ++i) {
            EXPECT_LE(messages[i].size, message_bytes);
            // One more instrument would not have fitted.
            EXPECT_GT(messages[i].size + 516, message_bytes);
        }
    }
}

TEST_F(SnapshotStreamTest, ASplitComesInEveryCycle) {
    for (const std::uint64_t offset : {20U, 58U, 61U, 3000U}) {
        SnapshotOptions options = only(SHFE_2PS);
        options.segments.split_at = offset;
        SnapshotStream stream(market_, options);
        EXPECT_THAT(cuts_of(read_cycle(stream)), testing::Contains(offset));
        EXPECT_THAT(cuts_of(read_cycle(stream)), testing::Contains(offset));
    }
}

TEST_F(SnapshotStreamTest, QuirkyCutsFallIntoHeaders) {
    SnapshotOptions options = only(SHFE_2PS);
    options.message_bytes = 600;
    options.segments.quirky_cuts = 1;
    SnapshotStream stream(market_, options);
    const Cycle cycle = read_cycle(stream);
    const std::vector<std::size_t> distances = bytes_to_cut(cycle);
    EXPECT_THAT(distances, Each(testing::Le(7U)));
    EXPECT_EQ((std::set<std::size_t>{distances.begin(), distances.end()}.size()), 8U);
    EXPECT_EQ(messages_of(cycle).size(), 66U);
    EXPECT_EQ(messages_of(cycle).back().flag, 0x01);
}

TEST_F(SnapshotStreamTest, QuirkyCutsCanBeSwitchedOnAndOff) {
    SnapshotOptions options = only(SHFE_2PS);
    options.message_bytes = 600;
    SnapshotStream stream(market_, options);
    read_cycle(stream);
    stream.set_quirky_cuts(0.5);
    read_cycle(stream);
    const std::vector<std::size_t> distances = bytes_to_cut(read_cycle(stream));
    const auto quirky = std::ranges::count_if(distances, [](std::size_t bytes) { return bytes <= 7; });
    EXPECT_GT(quirky, 15);
    EXPECT_LT(quirky, 50);
    stream.set_quirky_cuts(0);
    read_cycle(stream);
    EXPECT_THAT(bytes_to_cut(read_cycle(stream)), Each(testing::Gt(7U)));
    EXPECT_THROW(stream.set_quirky_cuts(-0.1), std::invalid_argument);
}

// ---------------------------------------------------------------- options

TEST_F(SnapshotStreamTest, BadPricesAreThoseOfTheInstrumentsNamed) {
    SnapshotOptions options;
    options.bad_prices = {{.ref = {.feed = SHFE_2PS, .inst_no = 5}, .fault = PriceFault::crossed},
                          {.ref = {.feed = INE_2PS, .inst_no = 2}, .fault = PriceFault::no_value}};
    SnapshotStream stream(market_, options);
    test::RowReader shfe;
    shfe.read(messages_of(read_cycle(stream)));
    for (const auto& [inst_no, row] : shfe.rows) {
        EXPECT_EQ(row.bid1_vol > 0 && row.ask1_vol > 0 && row.bid1_price >= row.ask1_price, inst_no == 5);
    }
    test::RowReader ine;
    ine.read(messages_of(read_cycle(stream)));
    for (const auto& [inst_no, row] : ine.rows) {
        EXPECT_EQ(row.upper_limit_price == 0, inst_no == 2);
    }
}

TEST_F(SnapshotStreamTest, PricesGoBadAndGetRightAgainWhileItRuns) {
    SnapshotStream stream(market_, only(SHFE_2PS));
    const auto is_crossed = [&stream, inst_no = 5] {
        test::RowReader reader;
        reader.read(messages_of(read_cycle(stream)));
        return reader.rows.at(inst_no).bid1_price >= reader.rows.at(inst_no).ask1_price;
    };
    const std::string_view inst_id = market_.listing().at({.feed = SHFE_2PS, .inst_no = 5}).id();
    EXPECT_FALSE(is_crossed());
    stream.set_price_fault(inst_id, PriceFault::crossed);
    EXPECT_TRUE(is_crossed());
    stream.set_price_fault(inst_id, PriceFault::none);
    EXPECT_FALSE(is_crossed());
    EXPECT_THROW(stream.set_price_fault("nothing", PriceFault::crossed), std::invalid_argument);
}

TEST_F(SnapshotStreamTest, MessagesInBetweenCanHaveAnotherFlag) {
    SnapshotOptions options = only(SHFE_2PS);
    options.middle_flag = 0x00;
    SnapshotStream stream(market_, options);
    const std::vector<ReadMessage> messages = messages_of(read_cycle(stream));
    EXPECT_EQ(messages.front().flag, 0x11);
    EXPECT_EQ(messages[1].flag, 0x00);
    EXPECT_EQ(messages.back().flag, 0x01);
}

TEST_F(SnapshotStreamTest, PortsAndTopicsCanBeOthers) {
    SnapshotOptions options = only(INE_2PS);
    options.feeds[0].client.port = 40001;
    options.feeds[0].topic_id = 4321;
    SnapshotStream stream(market_, options);
    const ReadFrame frame = read_next(stream);
    EXPECT_EQ(frame.port, 40001U);
    EXPECT_EQ(test::little<std::int16_t>(frame.payload, 12), 4321);
}

TEST_F(SnapshotStreamTest, OptionsOutOfTheirRangesAreRefused) {
    const auto is_refused = [this](const SnapshotOptions& options) {
        try {
            const SnapshotStream stream(market_, options);
            return false;
        } catch (const std::invalid_argument&) {
            return true;
        }
    };
    const auto with = [](const auto& change) {
        SnapshotOptions options;
        change(options);
        return options;
    };
    EXPECT_FALSE(is_refused({}));
    EXPECT_TRUE(is_refused(with([](SnapshotOptions& options) { options.message_bytes = 523; })));
    EXPECT_TRUE(is_refused(with([](SnapshotOptions& options) { options.message_bytes = 60001; })));
    EXPECT_TRUE(is_refused(with([](SnapshotOptions& options) { options.segments.bytes = 63; })));
    EXPECT_TRUE(is_refused(with([](SnapshotOptions& options) { options.segments.bytes = 1461; })));
    EXPECT_TRUE(is_refused(with([](SnapshotOptions& options) { options.segments.quirky_cuts = 1.5; })));
    EXPECT_TRUE(is_refused(with([](SnapshotOptions& options) { options.middle_flag = 0x01; })));
    EXPECT_TRUE(is_refused(with([](SnapshotOptions& options) { options.feeds.clear(); })));
    EXPECT_TRUE(is_refused(with([](SnapshotOptions& options) { options.feeds[1] = options.feeds[0]; })));
    EXPECT_TRUE(is_refused(with([](SnapshotOptions& options) {
        options.bad_prices = {{.ref = {.feed = INE_2PS, .inst_no = 16}, .fault = PriceFault::nan}};
    })));
}

// ---------------------------------------------------------------- the same again

Bytes first_frames(const Market& market, std::uint64_t seed) {
    SnapshotOptions options;
    options.seed = seed;
    options.segments.quirky_cuts = 0.3;
    SnapshotStream stream(market, options);
    Bytes bytes;
    for (int i = 0; i < 200; ++i) {
        const Bytes frame = test::bytes_of(stream.next());
        bytes.insert(bytes.end(), frame.begin(), frame.end());
    }
    return bytes;
}

TEST_F(SnapshotStreamTest, TheSameSeedGivesTheSameFrames) {
    EXPECT_EQ(first_frames(market_, 1), first_frames(market_, 1));
    EXPECT_NE(first_frames(market_, 1), first_frames(market_, 2));
}

TEST_F(SnapshotStreamTest, NextAllocatesNothingOnceEveryFeedHasHadACycle) {
    SnapshotStream stream(market_);
    read_cycle(stream);
    read_cycle(stream);
    const std::uint64_t before = kova::test::Allocations::count();
    for (int i = 0; i < 500; ++i) {
        stream.next();
    }
    EXPECT_EQ(kova::test::Allocations::count(), before);
}

}  // namespace
}  // namespace kova::sim
