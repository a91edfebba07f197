// The handler of the snapshot: which segments count, sessions opening and closing, completion, starting over.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "card/engine_test.h"
#include "support/allocations.h"
#include "support/mdqp_message.h"
#include "support/process.h"
#include "support/snapshot_frame.h"

namespace {

using kova::sim::RegisterAccess;
using kova::test::ByteString;
using kova::test::dma_tcp_message;
using kova::test::MdqpMessage;
using kova::test::Segment;
using kova::test::Strings;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint16_t kPort = 33022;
constexpr std::int16_t kShfe2ps = 1000;
constexpr std::int16_t kShfe4ps = 1101;
constexpr std::int16_t kIne2ps = 5000;
constexpr std::int16_t kIne4ps = 5101;

ByteString bytes_of(const MdqpMessage& message) {
    const auto bytes = message.bytes();
    return {bytes.begin(), bytes.end()};
}

/** First message of a snapshot with one instrument in it. */
MdqpMessage opening(std::int16_t topic, std::int32_t inst_no, std::string_view inst_id) {
    MdqpMessage message(0x11);
    message.snap(topic, 7)
        .inst_info(
            {.inst_id = inst_id, .volume_multiple = 5, .price_tick = 10, .codec_price = 1, .inst_no = inst_no})
        .field(0x1002, {1, 2, 3, 4, 5});
    return message;
}

/** A message with an instrument more; the last one of a snapshot has flag 0x01. */
MdqpMessage following(std::uint8_t flag, std::int32_t inst_no, std::string_view inst_id) {
    MdqpMessage message(flag);
    message
        .inst_info(
            {.inst_id = inst_id, .volume_multiple = 5, .price_tick = 10, .codec_price = 1, .inst_no = inst_no})
        .tail();
    return message;
}

class TcpHandlerTest : public kova::test::EngineTest {
 protected:
    TcpHandlerTest() {
        // Registers are open and the configuration is read; what bring-up makes of it is not asked here.
        EXPECT_EQ(EngineAccess::registers(*engine).Init(0, 474), 0);
        U50ConfigInfo& config = EngineAccess::config(*engine);
        config.log_level = static_cast<ELOGLEVEL>(15);
        config.enabled_mask.enabled_mask = 0x05;
        config.topicID = {kShfe2ps, kShfe4ps, kIne2ps, kIne4ps};
        config.snapTcpPort = {33022, 22000, 33022, 22000};
        forget();
    }

    void take(const ByteString& message) {
        EngineAccess::tcp_handler(message.data(), static_cast<unsigned>(message.size()), engine.get());
    }
    void take(const Segment& segment) { take(dma_tcp_message(segment)); }
    /** A segment with the next bytes of the connection. */
    void send(const ByteString& payload, std::uint16_t port = kPort) {
        take(Segment{.seq = seq, .payload = payload, .dst_port = port});
        seq += static_cast<std::uint32_t>(payload.size());
    }
    void send(const MdqpMessage& message) { send(bytes_of(message)); }

    [[nodiscard]] tcp_session_t& session(std::uint16_t port = kPort) const {
        return EngineAccess::session(*engine, port);
    }
    [[nodiscard]] std::string id(const SInstTableType& row) const { return row.inst_id; }
    [[nodiscard]] const U50InstTable& tables() const { return EngineAccess::peek_inst_table(*engine); }
    [[nodiscard]] bool is_clean() const {
        const tcp_session_t& peeked = EngineAccess::peek_session(*engine, kPort);
        const tcp_session_t zero{};
        return std::memcmp(&peeked, &zero, sizeof(zero)) == 0 &&
               tables().shfe2psInstTable.rows[3].inst_id[0] == 0 &&
               EngineAccess::inst_count(*engine).shfe_inst_cnt_2ps == 0 &&
               EngineAccess::finished_mask(*engine).enabled_mask == 0;
    }

    std::uint32_t seq = 5000;
};

// 1. Entry.

TEST_F(TcpHandlerTest, NothingToWorkOnIsTold) {
    const ByteString message = dma_tcp_message(Segment{});
    EngineAccess::tcp_handler(nullptr, 10, engine.get());
    EngineAccess::tcp_handler(message.data(), static_cast<unsigned>(message.size()), nullptr);
    EXPECT_THAT(new_log(), ElementsAre("[D][_TcpHandler]user_data or lpPacket is nullptr",
                                       "[D][_TcpHandler]user_data or lpPacket is nullptr"));
}

TEST_F(TcpHandlerTest, AMessageOfAnotherKindIsTold) {
    take(ByteString{1, 0, 0, 0, 0xB0, 0, 0, 0});
    take(ByteString{0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_THAT(new_log(), ElementsAre("[W][_TcpHandler]invalide DMA Data Type[1]",
                                       "[W][_TcpHandler]invalide DMA Data Type[4294967295]"));
}

TEST_F(TcpHandlerTest, AnEventIsToldWithItsWords) {
    ByteString event(32, 0);
    for (std::size_t i = 0; i < 6; ++i) {
        event[8 + 4 * i] = static_cast<std::uint8_t>(i + 1);
    }
    take(event);
    EXPECT_THAT(new_log(),
                ElementsAre("[W][_TcpHandler]invalide DMA Data Type[0]",
                            "[W][_TcpHandler]channel0 receive DMA_EVENT event_data0[1] event_data1[2] "
                            "event_data2[3] event_data3[4] event_data4[5] event_data5[6]"));
    EXPECT_FALSE(EngineAccess::is_hbm2_init_finished(*engine));
}

TEST_F(TcpHandlerTest, AnEmptyMessageCountsAsZeros) {
    take(ByteString{});
    EXPECT_THAT(new_log(),
                ElementsAre("[W][_TcpHandler]invalide DMA Data Type[0]",
                            "[W][_TcpHandler]channel0 receive DMA_EVENT event_data0[0] event_data1[0] "
                            "event_data2[0] event_data3[0] event_data4[0] event_data5[0]"));
}

TEST_F(TcpHandlerTest, EveryPrefixOfASegmentIsTakenWithoutHarm) {
    const ByteString message =
        dma_tcp_message(Segment{.seq = seq, .payload = bytes_of(opening(kShfe2ps, 3, "cu"))});
    for (std::size_t length = 0; length < message.size(); ++length) {
        // In memory of its own, so that a read behind it is noticed.
        const std::vector<std::uint8_t> exact(message.begin(),
                                              message.begin() + static_cast<std::ptrdiff_t>(length));
        EngineAccess::tcp_handler(exact.data(), static_cast<unsigned>(length), engine.get());
        EXPECT_EQ(EngineAccess::peek_session(*engine, kPort).init, 0) << length;
    }
}

// 2. Which segments count.

TEST_F(TcpHandlerTest, OtherProtocolsAndPortsAreIgnoredWithoutAWord) {
    take(Segment{.seq = seq, .payload = bytes_of(opening(kShfe2ps, 3, "cu")), .protocol = 17});
    take(Segment{.seq = seq, .payload = bytes_of(opening(kShfe2ps, 3, "cu")), .dst_port = 33023});
    take(Segment{.seq = seq, .payload = {1}, .dst_port = 1, .tcp_checksum = 0});
    EXPECT_THAT(new_log(), IsEmpty());
}

TEST_F(TcpHandlerTest, EachOfTheFourConfiguredPortsCounts) {
    EngineAccess::config(*engine).snapTcpPort = {1001, 1002, 1003, 1004};
    for (std::uint16_t port = 1000; port <= 1005; ++port) {
        take(Segment{.dst_port = port, .tcp_checksum = 1});
    }
    // For port 1001: 0xa01 + 0x203 + 0xa01 + 0x204, protocol 6, length 20, ports 0x9c40 and 0x3e9, 0x102 +
    // 0x304, 0x5010 and 0xffff are 0x20c61, folded 0xc63, inverted 0xf39c. Each port more is one less.
    const std::string line = "[E][_TcpHandler]TcpCheckSum false, tcp_hdr->check is 0x100, tcpchecksum is ";
    EXPECT_THAT(new_log(), ElementsAre(line + "0x9cf3", line + "0x9bf3", line + "0x9af3", line + "0x99f3"));
}

TEST_F(TcpHandlerTest, AWrongChecksumIsTold) {
    take(Segment{.seq = 1, .src_host = 0, .dst_host = 0, .src_port = 0, .tcp_checksum = 0x1234});
    // Protocol 6, length 20, port 0x80FE, sequence 1, acknowledgement 0x01020304, 0x5010, window 0xFFFF.
    // 0x6 + 0x14 + 0x80fe + 0x1 + 0x102 + 0x304 + 0x5010 + 0xffff is 0x1d52e, folded 0xd52f, inverted 0x2ad0.
    EXPECT_THAT(new_log(), ElementsAre("[E][_TcpHandler]TcpCheckSum false, tcp_hdr->check is 0x3412, "
                                       "tcpchecksum is 0xd02a"));
}

TEST_F(TcpHandlerTest, LengthsThatContradictEachOtherAreTold) {
    const std::string line = "[E][_TcpHandler]TcpCheckSum false";
    take(Segment{.ip_length = 19});
    take(Segment{.ip_length = 39});
    take(Segment{.payload = ByteString(8, 0), .tcp_words = 8});
    take(Segment{.payload = ByteString(100, 0), .ip_length = 2023});
    take(Segment{.payload = ByteString(100, 0), .ip_length = 65535});
    EXPECT_THAT(new_log(), ElementsAre(line, line, line, line, line));
}

TEST_F(TcpHandlerTest, WhatAMessageDoesNotHoldCountsAsZeros) {
    // The IP header speaks of 60 bytes more than there are, and the checksum agrees with zeros.
    const ByteString payload = bytes_of(opening(kShfe2ps, 3, "cu"));
    ByteString message = dma_tcp_message(Segment{.seq = seq, .payload = payload + ByteString(60, 0)});
    message.resize(message.size() - 60);
    const std::vector<std::uint8_t> exact(message.begin(), message.end());
    EngineAccess::tcp_handler(exact.data(), static_cast<unsigned>(exact.size()), engine.get());
    EXPECT_EQ(session().init, 1);
    EXPECT_EQ(session().next_expt_seq, seq + payload.size() + 60);
}

TEST_F(TcpHandlerTest, OfALongMessageThe2048FirstBytesCount) {
    const ByteString payload = bytes_of(opening(kShfe2ps, 3, "cu"));
    ByteString message = dma_tcp_message(Segment{.seq = seq, .payload = payload});
    message.resize(4096, 0x11);
    take(message);
    EXPECT_EQ(session().init, 1);
    ByteString too_long = dma_tcp_message(Segment{.seq = seq, .payload = ByteString(3000, 0)});
    take(too_long);
    EXPECT_EQ(new_log().back(), "[E][_TcpHandler]TcpCheckSum false");
}

TEST_F(TcpHandlerTest, ASegmentOfEveryHeaderLengthOpensASession) {
    for (std::size_t ip_words = 0; ip_words <= 10; ++ip_words) {
        for (std::size_t tcp_words = 0; tcp_words <= 10; ++tcp_words) {
            take(Segment{.seq = seq,
                         .payload = bytes_of(opening(kShfe2ps, 3, "cu")),
                         .ip_options = ByteString(4 * ip_words, 1),
                         .tcp_options = ByteString(4 * tcp_words, 1)});
            ASSERT_EQ(session().init, 1) << ip_words << " " << tcp_words;
            EngineAccess::clean_data(*engine);
        }
    }
}

TEST_F(TcpHandlerTest, WithoutAnEnabledFeedEverySegmentIsTold) {
    EngineAccess::config(*engine).enabled_mask.enabled_mask = 0;
    send(opening(kShfe2ps, 3, "cu"));
    EXPECT_THAT(new_log(), ElementsAre("[E][_TcpHandler]both shfe and ine are not subscribed"));
    EXPECT_EQ(EngineAccess::peek_session(*engine, kPort).init, 0);
}

// 3. Sessions.

TEST_F(TcpHandlerTest, TheFirstMessageOfASnapshotOpensASession) {
    take(Segment{.seq = 77, .payload = bytes_of(opening(kShfe2ps, 3, "cu2606")), .src_port = 40001});
    const tcp_session_t& opened = session();
    EXPECT_EQ(opened.init, 1);
    EXPECT_EQ(opened.current_seq, 77U);
    EXPECT_EQ(opened.next_expt_seq, 77U + 8 + 10 + 116 + 9);
    EXPECT_EQ(opened.src_port, 40001);
    EXPECT_EQ(opened.dst_port, kPort);
    const std::uint8_t addresses[8] = {10, 1, 2, 3, 10, 1, 2, 4};
    EXPECT_EQ(std::memcmp(&opened.src_host, addresses, 8), 0);
    EXPECT_EQ(EngineAccess::dst_port(*engine).port_shfe_2ps, kPort);
    EXPECT_EQ(id(tables().shfe2psInstTable.rows[3]), "cu2606");
    const Strings log = new_log();
    ASSERT_EQ(log.size(), 3U);
    EXPECT_EQ(log[0].substr(0, 42), "[D][_InitTcpSession] dstPort:33022 frag_bu");
    EXPECT_EQ(log[1], "[D][_TcpHandler]mdqp packet. TCP dst port: 33022");
    EXPECT_EQ(log[2], "[D][_TcpHandler]topic ID: 1000, snap No: 7");
}

TEST_F(TcpHandlerTest, AFirstSegmentOf44BytesOpensNothing) {
    MdqpMessage message(0x11);
    message.snap(kShfe2ps, 7).raw(std::vector<std::uint8_t>(26));
    send(message);
    EXPECT_EQ(session().init, 0);
    seq = 5000;
    message.raw({0});
    send(message);
    EXPECT_EQ(session().init, 1);
}

TEST_F(TcpHandlerTest, AFirstSegmentWithTheLastMessagesFlagOpensNothing) {
    MdqpMessage message(0x01);
    message.snap(kShfe2ps, 7).inst_info({.inst_id = "cu2606", .inst_no = 3}).tail();
    send(message);
    EXPECT_EQ(session().init, 0);
    EXPECT_EQ(tables().shfe2psInstTable.rows[3].inst_id[0], 0);
    send(opening(kShfe2ps, 3, "cu2606"));
    EXPECT_EQ(session().init, 1);
}

TEST_F(TcpHandlerTest, AnUnknownTopicIsToldAndOpensNothing) {
    send(opening(999, 3, "cu2606"));
    EXPECT_EQ(session().init, 0);
    EXPECT_EQ(new_log().back(), "[W][_TcpHandler]invalide topic id[999]");
    EXPECT_EQ(tables().shfe2psInstTable.rows[3].inst_id[0], 0);
}

TEST_F(TcpHandlerTest, ATopicThatIsNotWantedOpensNothing) {
    send(opening(kShfe4ps, 3, "cu2606"));
    EXPECT_EQ(session().init, 0);
    EngineAccess::finished_mask(*engine).enabled_mask = 0x01;
    send(opening(kShfe2ps, 3, "cu2606"));
    EXPECT_EQ(session().init, 0);
    EXPECT_EQ(EngineAccess::dst_port(*engine).port_shfe_2ps, 0);
}

TEST_F(TcpHandlerTest, ASecondTopicThatIsRefusedLosesTheSegmentAndLeavesTheFirstOnesSessionOpen) {
    // One that is not wanted, and one that nobody has.
    for (const std::int16_t refused : {kShfe4ps, std::int16_t{999}}) {
        const std::uint32_t first = seq;
        MdqpMessage message(0x11);
        message.snap(kShfe2ps, 7).snap(refused, 8).inst_info({.inst_id = "cu2606", .inst_no = 3}).tail();
        send(message);
        EXPECT_EQ(session().init, 1);
        EXPECT_EQ(session().next_expt_seq, first + 8 + 10 + 10 + 116 + 9);
        EXPECT_EQ(EngineAccess::dst_port(*engine).port_shfe_2ps, kPort);
        EXPECT_EQ(EngineAccess::dst_port(*engine).port_shfe_4ps, 0);
        EXPECT_EQ(tables().shfe2psInstTable.rows[3].inst_id[0], 0);
        EXPECT_EQ(EngineAccess::inst_count(*engine).shfe_inst_cnt_2ps, 0U);
        const Strings log = new_log();
        ASSERT_EQ(log.size(), refused == 999 ? 6U : 5U);
        EXPECT_EQ(log[2], "[D][_TcpHandler]topic ID: 1000, snap No: 7");
        EXPECT_EQ(log[4], "[D][_TcpHandler]topic ID: " + std::to_string(refused) + ", snap No: 8");
        EXPECT_EQ(log.back(), refused == 999 ? "[W][_TcpHandler]invalide topic id[999]" : log[4]);
        // The stream goes on behind it.
        send(following(0x11, 4, "cu2607"));
        EXPECT_EQ(id(tables().shfe2psInstTable.rows[4]), "cu2607");
        EngineAccess::clean_data(*engine);
        new_log();
    }
}

TEST_F(TcpHandlerTest, EachTopicIsItsFeedsAndINEsComeFirst) {
    EngineAccess::config(*engine).enabled_mask.enabled_mask = 0x0F;
    const U50DstPort& ports = EngineAccess::dst_port(*engine);
    send(opening(kShfe2ps, 1, "a"));
    EXPECT_EQ(ports.port_shfe_2ps, kPort);
    EngineAccess::clean_data(*engine);
    send(opening(kShfe4ps, 1, "a"));
    EXPECT_EQ(ports.port_shfe_4ps, kPort);
    EngineAccess::clean_data(*engine);
    send(opening(kIne2ps, 1, "a"));
    EXPECT_EQ(ports.port_ine_2ps, kPort);
    EngineAccess::clean_data(*engine);
    send(opening(kIne4ps, 1, "a"));
    EXPECT_EQ(ports.port_ine_4ps, kPort);
    EngineAccess::clean_data(*engine);
    EngineAccess::config(*engine).topicID = {9, 9, 9, 9};
    send(opening(9, 1, "a"));
    EXPECT_EQ(ports.port_ine_2ps, kPort);
    EXPECT_EQ(ports.port_shfe_2ps, 0);
}

TEST_F(TcpHandlerTest, WithoutASnapshotFieldTheSegmentIsDeliveredAndTheSessionStaysClosed) {
    EngineAccess::dst_port(*engine).port_shfe_2ps = kPort;
    send(following(0x11, 3, "cu2606"));
    EXPECT_EQ(session().init, 0);
    EXPECT_EQ(id(tables().shfe2psInstTable.rows[3]), "cu2606");
}

TEST_F(TcpHandlerTest, AMessageOfAPortWithoutAFeedIsTold) {
    take(Segment{.seq = seq, .payload = bytes_of(following(0x11, 3, "cu2606")), .src_port = 40002});
    // 10.1.2.3 and 10.1.2.4 as they stand in memory.
    EXPECT_EQ(new_log().back(),
              "[D][_ParseMdqp]src_host[50462986] src_port[40002] dst_host[67240202] dst_port[33022] unknown.");
}

TEST_F(TcpHandlerTest, ASegmentFromAnotherPeerIsIgnoredWithoutAWord) {
    send(opening(kShfe2ps, 3, "cu2606"));
    new_log();
    const std::uint32_t expected = session().next_expt_seq;
    Segment other{.seq = seq, .payload = bytes_of(following(0x01, 4, "cu2607"))};
    other.src_host = 0x0A010299;
    take(other);
    other.src_host = 0x0A010203;
    other.dst_host = 0x0A010299;
    take(other);
    EXPECT_THAT(new_log(), IsEmpty());
    EXPECT_EQ(session().next_expt_seq, expected);
    EXPECT_EQ(tables().shfe2psInstTable.rows[4].inst_id[0], 0);
    // The peer's port is not looked at.
    other.dst_host = 0x0A010204;
    other.src_port = 1;
    take(other);
    EXPECT_EQ(id(tables().shfe2psInstTable.rows[4]), "cu2607");
}

TEST_F(TcpHandlerTest, ASessionWithoutMemoryStaysClosed) {
    {
        const kova::test::Allocations::FailLarge fail(100000);
        send(opening(kShfe2ps, 3, "cu2606"));
    }
    EXPECT_EQ(session().init, 0);
    EXPECT_THAT(new_log(), ElementsAre("[E][_InitTcpSession]failed to allocate memcory for fragment memory."));
}

TEST_F(TcpHandlerTest, AnEarlySegmentWithoutMemoryIsTold) {
    send(opening(kShfe2ps, 3, "cu2606"));
    new_log();
    {
        const kova::test::Allocations::FailLarge fail(1600);
        take(Segment{.seq = seq + 10, .payload = {1}});
    }
    EXPECT_THAT(new_log(), ElementsAre("[E][_TcpHandler]failed to malloc buffer to store tcp_lost_buf_t"));
    EXPECT_EQ(session().lost_buf_size, 0U);
}

TEST_F(TcpHandlerTest, TwoFeedsOnOnePortTakeTurns) {
    send(opening(kShfe2ps, 3, "cu2606"));
    // The other feed's server is another peer until the first snapshot has ended.
    Segment ine{.seq = 90000, .payload = bytes_of(opening(kIne2ps, 4, "sc2606")), .src_host = 0x0A010299};
    take(ine);
    EXPECT_EQ(EngineAccess::dst_port(*engine).port_ine_2ps, 0);
    send(following(0x01, 5, "cu2607"));
    EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 0x01);
    EXPECT_EQ(session().init, 0);
    take(ine);
    EXPECT_EQ(EngineAccess::dst_port(*engine).port_ine_2ps, kPort);
    EXPECT_EQ(EngineAccess::dst_port(*engine).port_shfe_2ps, 0);
    EXPECT_EQ(id(tables().ine2psInstTable.rows[4]), "sc2606");
    EXPECT_EQ(id(tables().shfe2psInstTable.rows[5]), "cu2607");
    EXPECT_EQ(EngineAccess::inst_count(*engine).shfe_inst_cnt_2ps, 6U);
    EXPECT_EQ(EngineAccess::inst_count(*engine).ine_inst_cnt_2ps, 5U);
}

// 4. Order, through the handler.

TEST_F(TcpHandlerTest, EarlySegmentsWaitAndAreTakenUp) {
    const ByteString first = bytes_of(opening(kShfe2ps, 3, "cu2606"));
    const ByteString rest = bytes_of(following(0x11, 4, "cu2607")) + bytes_of(following(0x01, 5, "cu2608"));
    send(first + rest.substr(0, 20));
    take(Segment{.seq = seq + 100, .payload = rest.substr(120)});
    take(Segment{.seq = seq, .payload = rest.substr(20, 100)});
    EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 0x01);
    EXPECT_EQ(id(tables().shfe2psInstTable.rows[4]), "cu2607");
    EXPECT_EQ(id(tables().shfe2psInstTable.rows[5]), "cu2608");
}

TEST_F(TcpHandlerTest, The501stEarlySegmentThrowsTheSnapshotAway) {
    send(opening(kShfe2ps, 3, "cu2606"));
    for (std::uint32_t i = 501; i > 1; --i) {
        take(Segment{.seq = seq + i, .payload = {1}});
    }
    EXPECT_EQ(session().lost_buf_size, 500U);
    EXPECT_EQ(id(tables().shfe2psInstTable.rows[3]), "cu2606");
    new_log();
    take(Segment{.seq = seq + 1, .payload = {1}});
    EXPECT_THAT(new_log(), ElementsAre("[W][_TcpHandler]break tcp seq detected. expt: 5143, Got: 5144",
                                       "[W][_TcpHandler]packet loss > 20 msg, free cache, init again."));
    EXPECT_TRUE(is_clean());
}

TEST_F(TcpHandlerTest, WhatWaitsBehindARefusedEarlySegmentThrowsTheSnapshotAwayAtThe501st) {
    send(opening(kShfe2ps, 3, "cu2606"));
    const ByteString first = bytes_of(following(0x11, 4, "cu2607"));
    ASSERT_EQ(first.size(), 133U);
    take(Segment{.seq = seq + 133, .payload = bytes_of(following(0x11, 5, "cu2608"))});
    take(Segment{.seq = seq + 266, .payload = bytes_of(following(0x01, 6, "cu2609"))});
    new_log();
    send(first);
    EXPECT_THAT(new_log(), ElementsAre("[E][_TcpHandler]not a mdqp header, check program logic"));
    EXPECT_EQ(id(tables().shfe2psInstTable.rows[4]), "cu2607");
    EXPECT_EQ(session().lost_buf_size, 2U);
    // Both count, so 498 more may wait.
    const std::uint32_t behind = seq + 133;
    EXPECT_EQ(session().next_expt_seq, behind);
    for (std::uint32_t i = 499; i > 1; --i) {
        take(Segment{.seq = behind + i, .payload = {1}});
    }
    EXPECT_EQ(session().lost_buf_size, 500U);
    EXPECT_THAT(new_log(), IsEmpty());
    take(Segment{.seq = behind + 1, .payload = {1}});
    EXPECT_THAT(new_log(), ElementsAre("[W][_TcpHandler]break tcp seq detected. expt: 5409, Got: 5410",
                                       "[W][_TcpHandler]packet loss > 20 msg, free cache, init again."));
    EXPECT_TRUE(is_clean());
    // The next snapshot is taken.
    send(opening(kShfe2ps, 3, "cu2606"));
    EXPECT_EQ(session().init, 1);
    EXPECT_EQ(id(tables().shfe2psInstTable.rows[3]), "cu2606");
}

TEST_F(TcpHandlerTest, ACycleThatEndsInsideAReplayLeavesAClosedSession) {
    EngineAccess::config(*engine).enabled_mask.enabled_mask = 0x01;
    const ByteString last = bytes_of(following(0x01, 4, "cu2607"));
    send(opening(kShfe2ps, 3, "cu2606"));
    const std::uint32_t gap = seq;
    take(Segment{.seq = gap + 40, .payload = last.substr(40)});
    // What follows the cycle is early too: the next snapshot's first message.
    const std::uint32_t behind = gap + static_cast<std::uint32_t>(last.size());
    take(Segment{.seq = behind + 500, .payload = {1, 2, 3}});
    take(Segment{.seq = gap, .payload = last.substr(0, 40)});
    EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 0x01);
    EXPECT_EQ(session().init, 0);
    EXPECT_EQ(session().lost_flag, 1);
    ASSERT_NE(session().lost_buf_head, nullptr);
    // The session that opens next begins without what waited.
    EngineAccess::finished_mask(*engine).enabled_mask = 0;
    seq = behind;
    send(opening(kShfe2ps, 6, "cu2609"));
    EXPECT_EQ(session().init, 1);
    EXPECT_EQ(session().lost_flag, 0);
    EXPECT_EQ(session().lost_buf_size, 0U);
    EXPECT_EQ(session().lost_buf_head, nullptr);
}

// 5. Reset.

TEST_F(TcpHandlerTest, RstWithAckThrowsTheSnapshotAway) {
    send(opening(kShfe2ps, 3, "cu2606"));
    new_log();
    take(Segment{.seq = 1, .flags = 0x14});
    EXPECT_THAT(new_log(), ElementsAre("[W][_TcpHandler]rst msg, Session closed dstport:33022"));
    EXPECT_TRUE(is_clean());
}

TEST_F(TcpHandlerTest, RstAloneIsTakenAsData) {
    send(opening(kShfe2ps, 3, "cu2606"));
    new_log();
    take(Segment{.seq = seq, .payload = bytes_of(following(0x01, 4, "cu2607")), .flags = 0x04});
    EXPECT_EQ(id(tables().shfe2psInstTable.rows[4]), "cu2607");
    EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 0x01);
}

// 6. Completion.

/** Price levels and limits of an instrument, in order or not. */
MdqpMessage priced(std::uint8_t flag, std::int32_t inst_no, double bid, double ask) {
    MdqpMessage message(flag);
    message.inst_info({.inst_id = "cu2606", .price_tick = 10, .inst_no = inst_no})
        .deal_info(
            {.inst_no = inst_no, .upper_limit_price = 110, .lower_limit_price = 90, .action_day = "20260105"})
        .bid(inst_no, bid, 1)
        .ask(inst_no, ask, 1)
        .tail();
    return message;
}

class CompletionTest : public TcpHandlerTest {
 protected:
    CompletionTest() { EngineAccess::config(*engine).enabled_mask.enabled_mask = 0x01; }

    void take_snapshot(double bid, double ask) {
        MdqpMessage first(0x11);
        first.snap(kShfe2ps, 7).field(0x1002, std::vector<std::uint8_t>(60));
        send(first);
        send(priced(0x01, 0, bid, ask));
        EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 0x01);
        EXPECT_FALSE(EngineAccess::is_tcp_init_finished(*engine));
        forget();
    }
};

TEST_F(CompletionTest, TheNextSegmentWritesTheTablesToTheCard) {
    take_snapshot(100, 101);
    sdk().stop();  // the five million accesses that follow are not worth a record each
    kova::sim::ContractTables& cards = card->memory().tables;
    const auto leave_a_word = [](auto& rows) {
        rows.front().config = 77;
        rows.back().low_price = 77;
    };
    leave_a_word(cards.shfe_2ps);
    leave_a_word(cards.shfe_4ps);
    leave_a_word(cards.ine_2ps);
    leave_a_word(cards.ine_4ps);
    card.preset(0x1000, 0xF);

    take(Segment{.seq = 1});
    EXPECT_TRUE(EngineAccess::is_tcp_init_finished(*engine));
    EXPECT_EQ(card.written(0x1000), 0U);
    SInstTableType row{};
    row.price_tick = 1000;  // 10.00
    std::strcpy(row.inst_id, "cu2606");
    row.upper_limit_price = 11000;
    row.lower_limit_price = 9000;
    row.bid1_price = 10000;
    row.bid1_vol = 1;
    row.ask1_price = 10100;
    row.ask1_vol = 1;
    EXPECT_EQ(std::memcmp(&cards.shfe_2ps[0], &row, sizeof row), 0);
    const auto expect_empty_from = [](const auto& rows, std::size_t first) {
        const SInstTableType empty{};
        for (std::size_t i = first; i < rows.size(); ++i) {
            ASSERT_EQ(std::memcmp(&rows[i], &empty, sizeof empty), 0) << i;
        }
    };
    expect_empty_from(cards.shfe_2ps, 1);
    expect_empty_from(cards.shfe_4ps, 0);
    expect_empty_from(cards.ine_2ps, 0);
    expect_empty_from(cards.ine_4ps, 0);
    // At level 31 for the one write, at the configured level before and after.
    const Strings log = new_log();
    ASSERT_EQ(log.size(), 2U);
    EXPECT_EQ(log[0], "[X][WriteRegister]0x1000: wrote 0x00000000 (0)");
    EXPECT_EQ(log[1].substr(0, 65), "[D][_WriteContractTable]index:0,inst_id:cu2606,price_tick:1000,co");
}

TEST_F(CompletionTest, WithDebugFlagItSleepsFirst) {
    EngineAccess::config(*engine).debug_flag = true;
    EngineAccess::config(*engine).dma_sleep = 1500;
    EngineAccess::config(*engine).error_case = 65535;
    EngineAccess::config(*engine).error_instno = 9;
    EngineAccess::config(*engine).log_level = LOG_WARNING;
    CCommonLog::GetInstance()->SetLogLevel(LOG_WARNING);
    take_snapshot(100, 101);
    sdk().stop();
    const auto before = kova::test::Clock::slept();
    take(Segment{.seq = 1});
    EXPECT_EQ(kova::test::Clock::slept() - before, std::chrono::microseconds(1500));
    EXPECT_EQ(new_log()[0], "[W][_TcpHandler]DMA sleep 1500us");
}

TEST_F(CompletionTest, TheSegmentThatCompletesIsStillTaken) {
    EngineAccess::config(*engine).log_level = LOG_WARNING;
    take_snapshot(100, 101);
    sdk().stop();
    take(Segment{.seq = 1, .flags = 0x14});
    EXPECT_TRUE(EngineAccess::is_tcp_init_finished(*engine));
    EXPECT_TRUE(is_clean());  // by the reset
}

TEST_F(CompletionTest, PricesThatCannotBeTrueThrowTheSnapshotAway) {
    // The line names the dump, of which there is one more than of the other captures.
    CWriteShot& shot = EngineAccess::write_dma_shot(*engine);
    shot.CreateShotBinLog();
    shot.CreateShotBinLog();
    shot.CreateShotPcapLog();
    take_snapshot(102, 101);
    take(Segment{.seq = 1});
    EXPECT_FALSE(EngineAccess::is_tcp_init_finished(*engine));
    EXPECT_TRUE(is_clean());
    EXPECT_THAT(sdk().register_accesses(), IsEmpty());
    EXPECT_EQ(new_log().back(), "[W][_TcpHandler]price check is error, shot cnt is 2.");
    EXPECT_TRUE(EngineAccess::price_error_inst_ids(*engine).empty());
    // The next cycle is checked anew.
    take_snapshot(100, 101);
}

TEST_F(CompletionTest, WithTheShieldBadPricesAreOnlyRemembered) {
    EngineAccess::config(*engine).shield_price_check = true;
    EngineAccess::config(*engine).log_level = LOG_WARNING;
    take_snapshot(102, 101);
    sdk().stop();
    take(Segment{.seq = 1});
    EXPECT_TRUE(EngineAccess::is_tcp_init_finished(*engine));
    EXPECT_EQ(EngineAccess::price_error_inst_ids(*engine), std::set<std::string>{"cu2606"});
}

TEST_F(CompletionTest, MemoryThatRunsOutGivesTheSnapshotUpAndThrowsNothing) {
    take_snapshot(100, 101);
    const ByteString message = dma_tcp_message(Segment{.seq = 1});
    {
        const kova::test::Allocations::FailNth fail(1);
        take(message);
        EXPECT_TRUE(fail.has_failed());
    }
    EXPECT_FALSE(EngineAccess::is_tcp_init_finished(*engine));
    EXPECT_TRUE(EngineAccess::is_snapshot_failed(*engine));
    EXPECT_EQ(new_log().back(), "[E][_TcpHandler]memory exhausted, snapshot given up");
}

// 7. Capture.

/** Content of the capture whose name ends so. */
std::string captured(const std::string& extension) {
    std::ostringstream text;
    for (const auto& entry : std::filesystem::directory_iterator(".")) {
        if (entry.path().extension() == extension) {
            text << std::ifstream(entry.path(), std::ios::binary).rdbuf();
        }
    }
    return text.str();
}

TEST_F(TcpHandlerTest, WhenAskedEveryMessageIsCaptured) {
    EngineAccess::config(*engine).dma_data_flag = true;
    CWriteShot& shot = EngineAccess::write_dma_shot(*engine);
    shot.CreateShotBinLog();
    shot.CreateShotPcapLog();
    take(ByteString{1, 0, 0, 0, 0xB0});  // no segment, and shorter than its header
    take(ByteString{2, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 0xAA, 0xBB});
    shot.CloseShotBinLog();
    shot.CloseShotPcapLog();
    const std::string pcap = captured(".pcap");
    EXPECT_EQ(captured(".bin").substr(257), "01 00 00 00 b0\n02 00 00 00 01 02 03 04 05 06 07 08 aa bb\n");
    ASSERT_EQ(pcap.size(), 24U + 16U + 16U + 2U);
    EXPECT_EQ(pcap.substr(32, 8), std::string(8, '\0'));
    EXPECT_EQ(pcap.substr(48), std::string("\2\0\0\0\2\0\0\0\xAA\xBB", 10));
}

TEST_F(TcpHandlerTest, OfALongMessageAllIsCaptured) {
    EngineAccess::config(*engine).dma_data_flag = true;
    CWriteShot& shot = EngineAccess::write_dma_shot(*engine);
    shot.CreateShotBinLog();
    shot.CreateShotPcapLog();
    // 2100 bytes; the ones on both sides of the first 2048 bytes' end and the last one differ from the rest.
    ByteString message = {2, 0, 0, 0};
    message.append(2043, 0xAB).append({0x01, 0x02}).append(50, 0xAB).append({0x03});
    take(message);
    shot.CloseShotBinLog();
    shot.CloseShotPcapLog();

    std::string line = "02 00 00 00";
    for (int i = 0; i < 2043; ++i) {
        line += " ab";
    }
    line += " 01 02";
    for (int i = 0; i < 50; ++i) {
        line += " ab";
    }
    EXPECT_EQ(captured(".bin").substr(257), line + " 03\n");
    const std::string pcap = captured(".pcap");
    // Without the 12 bytes in front of the frame 2088 are left: 0x828.
    ASSERT_EQ(pcap.size(), 24U + 16U + 2088U);
    EXPECT_EQ(pcap.substr(32, 8), std::string("\x28\x08\0\0\x28\x08\0\0", 8));
    EXPECT_EQ(pcap.substr(40), std::string(2035, '\xAB') + "\x01\x02" + std::string(50, '\xAB') + "\x03");
}

TEST_F(TcpHandlerTest, ACaptureIsReadByTcpdump) {
    EngineAccess::config(*engine).dma_data_flag = true;
    CWriteShot& shot = EngineAccess::write_dma_shot(*engine);
    shot.CreateShotPcapLog();
    take(Segment{.seq = 4'000'000'000, .payload = bytes_of(opening(kShfe2ps, 3, "cu2606"))});
    take(ByteString{1, 0, 0, 0, 0xB0});
    take(Segment{.seq = 7, .dst_port = 22000, .flags = kova::test::kTcpRst});
    shot.CloseShotPcapLog();
    // A segment of 8 bytes of header, 4 + 6 of topic, 4 + 112 of the instrument, 4 + 5 of another field.
    // Through standard input: started by root, tcpdump gives root's rights up before it opens a file.
    kova::test::Process tcpdump = kova::test::Process::run(
        "/bin/sh", {"-c", "cat kova_u50_dma_*.pcap | " KOVA_TCPDUMP_PROGRAM " -nn -t -S -r -"});
    EXPECT_EQ(tcpdump.exit_code(), 0) << tcpdump.error();
    EXPECT_EQ(tcpdump.output(),
              "IP 10.1.2.3.40000 > 10.1.2.4.33022: Flags [.], seq 4000000000:4000000143, ack 16909060, "
              "win 65535, length 143\n"
              "[Invalid header: caplen==0, len==0]\n"
              "IP 10.1.2.3.40000 > 10.1.2.4.22000: Flags [R], seq 7, win 65535, length 0\n");
}

TEST_F(TcpHandlerTest, WithoutTheFlagNothingIsCaptured) {
    CWriteShot& shot = EngineAccess::write_dma_shot(*engine);
    shot.CreateShotPcapLog();
    send(opening(kShfe2ps, 3, "cu2606"));
    shot.CloseShotPcapLog();
    for (const auto& entry : std::filesystem::directory_iterator(".")) {
        if (entry.path().extension() == ".pcap") {
            EXPECT_EQ(entry.file_size(), 24U);
        }
    }
}

TEST_F(TcpHandlerTest, StartingOverFindsWhateverWasWrittenOfTheSnapshot) {
    MdqpMessage first(0x11);
    // Rows that no field but the one describes, at the tables' ends and in the middle.
    first.snap(kShfe2ps, 7)
        .deal_info({.inst_no = 16383, .last_price = 10})
        .price_detail({.inst_no = 9000, .direction = '0', .price = 10, .volume = 1})
        .tail();
    send(first);
    MdqpMessage other(0x11);
    other.snap(kIne2ps, 7)
        .order_statistics({.inst_no = 4095, .bid_volume = 3, .bid_amount = 1, .ask_volume = 4, .ask_amount = 1})
        .tail();
    take(Segment{.seq = 77, .payload = bytes_of(other), .dst_port = 22000});
    ASSERT_NE(tables().shfe2psInstTable.rows[16383].last_price, 0);
    ASSERT_NE(tables().shfe2psInstTable.rows[9000].bid1_price, 0);
    ASSERT_NE(tables().ine2psInstTable.rows[4095].bid_volume, 0U);

    EngineAccess::clean_data(*engine);
    const auto* const begin = reinterpret_cast<const unsigned char*>(&tables());
    EXPECT_TRUE(std::all_of(begin, begin + sizeof(U50InstTable), [](unsigned char byte) { return byte == 0; }));
    for (const std::uint16_t port : {kPort, std::uint16_t{22000}}) {
        const tcp_session_t zero{};
        EXPECT_EQ(std::memcmp(&EngineAccess::peek_session(*engine, port), &zero, sizeof(zero)), 0) << port;
    }
}

}  // namespace
