// Whole messages of the snapshot stream: what they leave in the tables, the registers and the log.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "card/access_trace.h"
#include "card/engine_test.h"
#include "support/mdqp_message.h"

namespace kova::test {
namespace {

using ::testing::ElementsAre;

constexpr std::uint16_t kShfe2ps = 33001;
constexpr std::uint16_t kShfe4ps = 33002;
constexpr std::uint16_t kIne2ps = 33003;
constexpr std::uint16_t kIne4ps = 33004;

// First rows of the feeds' tables when all rows are counted through.
constexpr std::size_t kFirstShfe4ps = 16384;
constexpr std::size_t kFirstIne2ps = 32768;
constexpr std::size_t kFirstIne4ps = 36864;
constexpr std::size_t kAllRows = 40960;

constexpr double kNoValue = std::numeric_limits<double>::max();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();

/** Words that are not zero, by their number. */
using Words = std::map<std::size_t, std::uint32_t>;

class ParseMdqpTest : public EngineTest {
 protected:
    void SetUp() override {
        start_with_callback(5);
        EngineAccess::dst_port(*engine) = {kShfe2ps, kShfe4ps, kIne2ps, kIne4ps};
        EngineAccess::mark_snapshot_dirty(*engine);
    }

    /** Lets the engine parse a copy that ends where the message ends. */
    int parse(const MdqpMessage& message, std::uint16_t port = kShfe2ps) {
        const Bytes bytes = message.bytes();
        return EngineAccess::parse_mdqp(*engine, reinterpret_cast<const mdqp_t*>(bytes.data()), port);
    }

    /** What stands in a row, the rows of all tables counted through. */
    [[nodiscard]] Words words(std::size_t row) const {
        Words filled;
        for (std::size_t i = 0; i < 64; ++i) {
            std::uint32_t word = 0;
            std::memcpy(&word, table_bytes() + row * 256 + i * 4, sizeof(word));
            if (word != 0) {
                filled[i] = word;
            }
        }
        return filled;
    }
    /** The sixteen bytes of a row's identifier. */
    [[nodiscard]] std::string inst_id_bytes(std::size_t row) const {
        return {table_bytes() + row * 256 + 132, 16};
    }
    [[nodiscard]] std::vector<std::size_t> filled_rows() const {
        std::vector<std::size_t> rows;
        for (std::size_t row = 0; row < kAllRows; ++row) {
            if (!words(row).empty()) {
                rows.push_back(row);
            }
        }
        return rows;
    }
    [[nodiscard]] std::vector<std::uint64_t> counts() {
        const U50InstCount& count = EngineAccess::inst_count(*engine);
        return {count.shfe_inst_cnt_2ps, count.shfe_inst_cnt_4ps, count.ine_inst_cnt_2ps,
                count.ine_inst_cnt_4ps};
    }
    [[nodiscard]] std::vector<std::uint16_t> ports() {
        const U50DstPort& port = EngineAccess::dst_port(*engine);
        return {port.port_shfe_2ps, port.port_shfe_4ps, port.port_ine_2ps, port.port_ine_4ps};
    }
    [[nodiscard]] int finished() { return EngineAccess::finished_mask(*engine).enabled_mask; }

    [[nodiscard]] const SInstTableType& row(std::size_t number) const {
        return EngineAccess::peek_inst_table(*engine).shfe2psInstTable.rows[number];
    }

 private:
    [[nodiscard]] const char* table_bytes() const {
        return reinterpret_cast<const char*>(&EngineAccess::peek_inst_table(*engine));
    }
};

// The feed.

TEST_F(ParseMdqpTest, EachFeedHasRowsOfItsOwn) {
    const std::vector<std::pair<std::uint16_t, std::size_t>> rows = {
        {kShfe2ps, 3}, {kShfe4ps, 16387}, {kIne2ps, 32771}, {kIne4ps, 36867}};
    std::int32_t multiple = 10;
    for (const auto& [port, row_number] : rows) {
        EXPECT_EQ(parse(MdqpMessage().inst_info({.volume_multiple = multiple, .inst_no = 3}), port), 0);
        EXPECT_EQ(words(row_number), (Words{{3, static_cast<std::uint32_t>(multiple)}})) << row_number;
        ++multiple;
    }
    EXPECT_THAT(filled_rows(), ElementsAre(3, 16387, 32771, 36867));
    EXPECT_THAT(counts(), ElementsAre(4, 4, 4, 4));
}

TEST_F(ParseMdqpTest, TheHighestRowsAreTheLastOfTheirTables) {
    parse(MdqpMessage().inst_info({.volume_multiple = 1, .inst_no = 16383}), kShfe2ps);
    parse(MdqpMessage().inst_info({.volume_multiple = 2, .inst_no = 16383}), kShfe4ps);
    parse(MdqpMessage().inst_info({.volume_multiple = 3, .inst_no = 4095}), kIne2ps);
    parse(MdqpMessage().inst_info({.volume_multiple = 4, .inst_no = 4095}), kIne4ps);
    EXPECT_THAT(filled_rows(),
                ElementsAre(kFirstShfe4ps - 1, kFirstIne2ps - 1, kFirstIne4ps - 1, kAllRows - 1));
    EXPECT_THAT(counts(), ElementsAre(16384, 16384, 4096, 4096));
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ParseMdqpTest, AllFieldsOfAFeedFindTheSameRow) {
    for (const std::uint16_t port : {kShfe2ps, kShfe4ps, kIne2ps, kIne4ps}) {
        parse(MdqpMessage()
                  .inst_info({.volume_multiple = 1, .inst_no = 7})
                  .deal_info({.inst_no = 7, .volume = 2})
                  .ask(7, 0.03, 4)
                  .bid(7, 0.05, 6)
                  .order_statistics({.inst_no = 7, .bid_volume = 7, .ask_volume = 8}),
              port);
    }
    const Words expected = {{3, 1}, {31, 2}, {25, 3}, {26, 4}, {15, 5}, {16, 6}, {39, 7}, {42, 8}};
    EXPECT_THAT(filled_rows(), ElementsAre(7, 16391, 32775, 36871));
    for (const std::size_t row_number : {7U, 16391U, 32775U, 36871U}) {
        EXPECT_EQ(words(row_number), expected) << row_number;
    }
}

TEST_F(ParseMdqpTest, AnUnknownPortDropsTheMessage) {
    tcp_session_t& session = EngineAccess::session(*engine, 40000);
    session.src_host = 3232235777;
    session.src_port = 50001;
    session.dst_host = 4000000000;
    session.dst_port = 40000;
    session.init = 1;
    EXPECT_EQ(parse(MdqpMessage(0x01).inst_info({.volume_multiple = 1}).packet_no(5).tail(), 40000), -1);
    EXPECT_THAT(new_log(), ElementsAre("[D][_ParseMdqp]src_host[3232235777] src_port[50001] "
                                       "dst_host[4000000000] dst_port[40000] unknown."));
    EXPECT_THAT(filled_rows(), ElementsAre());
    EXPECT_EQ(sdk().register_accesses(), AccessTrace{});
    EXPECT_EQ(finished(), 0);
    EXPECT_EQ(EngineAccess::peek_session(*engine, 40000).init, 1);
}

TEST_F(ParseMdqpTest, APortOfSeveralFeedsIsTheFirstOnes) {
    EngineAccess::dst_port(*engine) = {1, kShfe4ps, kShfe4ps, kShfe4ps};
    EXPECT_EQ(parse(MdqpMessage().inst_info({.volume_multiple = 1, .inst_no = 0}), kShfe4ps), 0);
    EngineAccess::dst_port(*engine) = {1, 2, kIne2ps, kIne2ps};
    EXPECT_EQ(parse(MdqpMessage().inst_info({.volume_multiple = 1, .inst_no = 0}), kIne2ps), 0);
    EXPECT_THAT(filled_rows(), ElementsAre(kFirstShfe4ps, kFirstIne2ps));
}

// The walk over the fields.

TEST_F(ParseMdqpTest, AMessageWithoutABodyIsParsed) {
    EXPECT_EQ(parse(MdqpMessage()), 0);
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ParseMdqpTest, AFieldThatBeginsInTheLastEightBytesIsNotLookedAt) {
    EXPECT_EQ(parse(MdqpMessage().packet_no(5)), 0);
    EXPECT_EQ(parse(MdqpMessage().field(0x7777, Bytes(4))), 0);
    EXPECT_EQ(parse(MdqpMessage().snap(1, 1).field(0x7777, Bytes(0))), 0);
    EXPECT_EQ(sdk().register_accesses(), AccessTrace{});
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ParseMdqpTest, AFieldThatBeginsNineBytesBeforeTheEndIsLookedAt) {
    EXPECT_EQ(parse(MdqpMessage().packet_no(5).raw(Bytes(1))), 0);
    EXPECT_EQ(parse(MdqpMessage().field(0x7777, Bytes(5))), 0);
    EXPECT_EQ(sdk().register_accesses(), (AccessTrace{write_of(0x11110, 5)}));
    EXPECT_THAT(new_log(), ElementsAre("[E][_ParseMdqp]unknown field id: 7777"));
}

TEST_F(ParseMdqpTest, AnUnknownFieldIsToldAndSkipped) {
    EXPECT_EQ(parse(MdqpMessage()
                        .field(0x0005, Bytes(3))
                        .field(0x0105, Bytes(0))
                        .field(0xFFFF, Bytes(200))
                        .field(0x0000, Bytes(1))
                        .inst_info({.volume_multiple = 9, .inst_no = 1})),
              0);
    EXPECT_THAT(new_log(),
                ElementsAre("[E][_ParseMdqp]unknown field id: 05", "[E][_ParseMdqp]unknown field id: 105",
                            "[E][_ParseMdqp]unknown field id: ffff", "[E][_ParseMdqp]unknown field id: 00"));
    EXPECT_EQ(words(1), (Words{{3, 9}}));
}

TEST_F(ParseMdqpTest, FieldsOfNoInterestAreIgnoredSilently) {
    EXPECT_EQ(parse(MdqpMessage()
                        .field(0x0031, Bytes(10))
                        .field(0x0032, Bytes(0))
                        .snap(1000, 7)
                        .field(0x1002, Bytes(300))
                        .field(0x1003, Bytes(1))
                        .inst_info({.volume_multiple = 9, .inst_no = 1})),
              0);
    EXPECT_EQ(new_log(), Strings{});
    EXPECT_THAT(filled_rows(), ElementsAre(1));
}

TEST_F(ParseMdqpTest, ABodyThatReachesPastTheMessagesEndIsToldAndNotStored) {
    const auto cut = [](Bytes body) {
        body.pop_back();
        return body;
    };
    EXPECT_EQ(parse(MdqpMessage().field_of_size(0x0101, 112,
                                                cut(inst_info_body({.volume_multiple = 1, .inst_no = 1})))),
              0);
    EXPECT_EQ(parse(MdqpMessage().field_of_size(0x0102, 154, cut(deal_info_body({.volume = 1})))), 0);
    EXPECT_EQ(parse(MdqpMessage().field_of_size(0x0103, 17, cut(price_detail_body({.price = 1})))), 0);
    EXPECT_EQ(parse(MdqpMessage().field_of_size(0x0104, 28, cut(order_statistics_body({.bid_volume = 1})))), 0);
    EXPECT_THAT(new_log(),
                ElementsAre("[E][_ParseMdqp]lpInstInfo is nullptr.", "[E][_ParseMdqp]lpDealInfo is nullptr.",
                            "[E][_ParseMdqp]lpPriceFetail is nullptr.",
                            "[E][_ParseMdqp]lpOrderStatisticsInfo is nullptr."));
    EXPECT_THAT(filled_rows(), ElementsAre());
    EXPECT_THAT(counts(), ElementsAre(0, 0, 0, 0));
}

TEST_F(ParseMdqpTest, ABodyThatReachesPastTheMessagesEndDoesNotKeepAMessageFromEndingTheSnapshot) {
    EXPECT_EQ(parse(MdqpMessage(0x01).field_of_size(0x0103, 17, Bytes(10))), 0);
    EXPECT_EQ(finished(), 0x01);
}

TEST_F(ParseMdqpTest, TheLengthOfTheHeaderIsTheEndOfTheMessage) {
    MdqpMessage message;
    message.inst_info({.volume_multiple = 1, .inst_no = 1});
    message.inst_info({.volume_multiple = 1, .inst_no = 2});
    EXPECT_EQ(parse(message.length(231)), 0);  // one byte less than two fields of 116
    EXPECT_THAT(new_log(), ElementsAre("[E][_ParseMdqp]lpInstInfo is nullptr."));
    EXPECT_THAT(filled_rows(), ElementsAre(1));
}

TEST_F(ParseMdqpTest, ABodyIsDecodedByItsStructureEvenIfItsSizeSaysLess) {
    // The walk goes on inside the body, where the volume looks like an ignored field of the other 20 bytes.
    const Bytes body = order_statistics_body(
        {.inst_no = 2, .bid_volume = 0x00141002, .bid_amount = 0.01, .ask_volume = 3, .ask_amount = 0.02});
    EXPECT_EQ(
        parse(MdqpMessage().field_of_size(0x0104, 4, body).inst_info({.volume_multiple = 9, .inst_no = 1})), 0);
    EXPECT_EQ(words(2), (Words{{39, 0x00141002}, {40, 1}, {42, 3}, {43, 2}}));
    EXPECT_EQ(words(1), (Words{{3, 9}}));
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ParseMdqpTest, TheWalkGoesAsFarAsTheSizeSays) {
    Bytes body = order_statistics_body({.inst_no = 2, .bid_volume = 5});
    body.resize(40, 0xEE);
    EXPECT_EQ(
        parse(MdqpMessage().field_of_size(0x0104, 40, body).inst_info({.volume_multiple = 9, .inst_no = 1})),
        0);
    EXPECT_EQ(words(2), (Words{{39, 5}}));
    EXPECT_EQ(words(1), (Words{{3, 9}}));
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ParseMdqpTest, ASizeBeyondTheMessageEndsTheWalk) {
    EXPECT_EQ(parse(MdqpMessage(0x01)
                        .field_of_size(0x0104, 65535, order_statistics_body({.inst_no = 2, .bid_volume = 5}))
                        .inst_info({.volume_multiple = 9, .inst_no = 1})),
              0);
    EXPECT_EQ(words(2), (Words{{39, 5}}));
    EXPECT_THAT(filled_rows(), ElementsAre(2));
    EXPECT_EQ(finished(), 0x01);
}

TEST_F(ParseMdqpTest, AMessageOfTheGreatestLengthIsWalkedToItsEnd) {
    MdqpMessage message;
    message.field(0x1003, Bytes(65401));
    message.field(0x1003, Bytes(10));
    message.inst_info({.volume_multiple = 9, .inst_no = 1});
    ASSERT_EQ(message.bytes().size(), 65535U + 8U);
    EXPECT_EQ(parse(message), 0);
    EXPECT_EQ(words(1), (Words{{3, 9}}));
}

TEST_F(ParseMdqpTest, TheTypeOfTheMessageIsNotLookedAt) {
    EXPECT_EQ(parse(MdqpMessage().type_id(0x33).inst_info({.volume_multiple = 9, .inst_no = 1})), 0);
    EXPECT_EQ(words(1), (Words{{3, 9}}));
}

// Instrument numbers.

TEST_F(ParseMdqpTest, ANumberPastAShfeTableIsRefusedAndToldOnce) {
    parse(MdqpMessage().inst_info({.volume_multiple = 1, .inst_no = 16384}));
    parse(MdqpMessage()
              .inst_info({.volume_multiple = 1, .inst_no = 16385})
              .deal_info({.inst_no = 16384, .volume = 1})
              .bid(16384, 1, 1)
              .order_statistics({.inst_no = 16384, .bid_volume = 1}),
          kShfe4ps);
    EXPECT_THAT(new_log(), ElementsAre("[W][_ProtectInstNo]shfe inst_no[16384] is out of range [16384]"));
    EXPECT_THAT(filled_rows(), ElementsAre());
    EXPECT_THAT(counts(), ElementsAre(0, 0, 0, 0));
}

TEST_F(ParseMdqpTest, ANumberPastAnIneTableIsRefusedAndToldOnce) {
    parse(MdqpMessage().deal_info({.inst_no = 4096, .volume = 1}), kIne4ps);
    parse(MdqpMessage()
              .inst_info({.volume_multiple = 1, .inst_no = 16383})
              .deal_info({.inst_no = 4096, .volume = 1})
              .bid(2147483647, 1, 1)
              .order_statistics({.inst_no = 4096, .bid_volume = 1}),
          kIne2ps);
    EXPECT_THAT(new_log(), ElementsAre("[W][_ProtectInstNo]ine inst_no[4096] is out of range  [4096]"));
    EXPECT_THAT(filled_rows(), ElementsAre());
    EXPECT_THAT(counts(), ElementsAre(0, 0, 0, 0));
}

TEST_F(ParseMdqpTest, EachExchangeTellsItsFirstNumberPastTheTable) {
    parse(MdqpMessage().bid(2147483647, 1, 1), kShfe4ps);
    parse(MdqpMessage().bid(5000, 1, 1), kIne2ps);
    parse(MdqpMessage().bid(5001, 1, 1), kIne4ps);
    parse(MdqpMessage().bid(2147483646, 1, 1), kShfe2ps);
    EXPECT_THAT(new_log(), ElementsAre("[W][_ProtectInstNo]shfe inst_no[2147483647] is out of range [16384]",
                                       "[W][_ProtectInstNo]ine inst_no[5000] is out of range  [4096]"));
}

TEST_F(ParseMdqpTest, ARefusedFieldDropsNothingElseOfItsMessage) {
    parse(MdqpMessage()
              .inst_info({.volume_multiple = 1, .inst_no = 16384})
              .inst_info({.volume_multiple = 2, .inst_no = 1}));
    EXPECT_EQ(words(1), (Words{{3, 2}}));
}

TEST_F(ParseMdqpTest, ANegativeNumberStoresNothingAnywhere) {
    for (const std::uint16_t port : {kShfe2ps, kShfe4ps, kIne2ps, kIne4ps}) {
        for (const std::int32_t inst_no : {-1, -16384, std::numeric_limits<std::int32_t>::min()}) {
            EXPECT_EQ(parse(MdqpMessage()
                                .inst_info({.volume_multiple = 1, .inst_no = inst_no})
                                .deal_info({.inst_no = inst_no, .volume = 1, .action_day = "20260105"})
                                .bid(inst_no, 1, 1)
                                .order_statistics({.inst_no = inst_no, .bid_volume = 1}),
                            port),
                      0);
        }
    }
    EXPECT_THAT(filled_rows(), ElementsAre());
    EXPECT_THAT(counts(), ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(EngineAccess::trading_day(*engine), 0);
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ParseMdqpTest, OnlyTheUpperBoundOfANumberIsProtected) {
    EXPECT_EQ(EngineAccess::protect_inst_no(SHFE_2PS, 16383), 1);
    EXPECT_EQ(EngineAccess::protect_inst_no(SHFE_4PS, 0), 1);
    EXPECT_EQ(EngineAccess::protect_inst_no(SHFE_4PS, -1), 1);
    EXPECT_EQ(EngineAccess::protect_inst_no(INE_2PS, 4095), 1);
    EXPECT_EQ(EngineAccess::protect_inst_no(INE_4PS, std::numeric_limits<int>::min()), 1);
    EXPECT_EQ(new_log(), Strings{});
    EXPECT_EQ(EngineAccess::protect_inst_no(SHFE_4PS, 16384), 0);
    EXPECT_EQ(EngineAccess::protect_inst_no(INE_2PS, 4096), 0);
    EXPECT_EQ(EngineAccess::protect_inst_no(INE_4PS, 4096), 0);
}

TEST_F(ParseMdqpTest, AFeedThatIsNoneIsRefusedAndToldEveryTime) {
    EXPECT_EQ(EngineAccess::protect_inst_no(static_cast<EMDQPDataType>(4), 0), 0);
    EXPECT_EQ(EngineAccess::protect_inst_no(static_cast<EMDQPDataType>(-1), 0), 0);
    EXPECT_THAT(new_log(), ElementsAre("[I][_ProtectInstNo]refMDQPDataType is error, 4.",
                                       "[I][_ProtectInstNo]refMDQPDataType is error, -1."));
}

TEST_F(ParseMdqpTest, TheCountIsOnePastTheHighestNumberSeen) {
    parse(MdqpMessage().inst_info({.inst_no = 5}));
    EXPECT_THAT(counts(), ElementsAre(6, 0, 0, 0));
    parse(MdqpMessage().inst_info({.inst_no = 5}).inst_info({.inst_no = 2}));
    EXPECT_THAT(counts(), ElementsAre(6, 0, 0, 0));
    parse(MdqpMessage().inst_info({.inst_no = 6}));
    EXPECT_THAT(counts(), ElementsAre(7, 0, 0, 0));
}

TEST_F(ParseMdqpTest, OnlyTheDescriptionOfAnInstrumentCounts) {
    parse(MdqpMessage()
              .deal_info({.inst_no = 100})
              .bid(101, 1, 1)
              .order_statistics({.inst_no = 102})
              .packet_no(103)
              .tail());
    EXPECT_THAT(counts(), ElementsAre(0, 0, 0, 0));
}

// Descriptions of instruments.

TEST_F(ParseMdqpTest, ADescriptionFillsItsWords) {
    parse(MdqpMessage().inst_info({.inst_id = "cu2401",
                                   .volume_multiple = 1000,
                                   .price_tick = 10.0,
                                   .codec_price = 12.345,
                                   .inst_no = 4}));
    // "cu24", "01"
    EXPECT_EQ(words(4), (Words{{1, 1000}, {2, 1235}, {3, 1000}, {33, 0x34327563}, {34, 0x3130}}));
}

TEST_F(ParseMdqpTest, ADescriptionWithoutValuesHasZeros) {
    parse(MdqpMessage().inst_info(
        {.volume_multiple = -1, .price_tick = kNoValue, .codec_price = kNoValue, .inst_no = 4}));
    EXPECT_EQ(words(4), (Words{{3, 0xFFFFFFFF}}));
    for (const double value : {kInfinity, -kInfinity, kNotANumber, 1e9, -1e9}) {
        EngineAccess::inst_table(*engine).shfe2psInstTable.rows[4].price_tick = 1;
        EngineAccess::inst_table(*engine).shfe2psInstTable.rows[4].codec_price = 1;
        parse(MdqpMessage().inst_info({.price_tick = value, .codec_price = value, .inst_no = 4}));
        EXPECT_EQ(words(4), Words{}) << value;
    }
}

TEST_F(ParseMdqpTest, IdentifiersKeepTheirFirstFifteenCharacters) {
    const std::string longest = "abcdefghijklmnopqrstuvwxyz01234";
    for (std::size_t length = 1; length <= 31; ++length) {
        const std::string inst_id = longest.substr(0, length);
        parse(MdqpMessage().inst_info({.inst_id = inst_id, .inst_no = 4}));
        std::string expected = inst_id.substr(0, 15);
        expected.resize(16, '\0');
        EXPECT_EQ(inst_id_bytes(4), expected) << length;
    }
}

TEST_F(ParseMdqpTest, AShorterIdentifierLeavesNothingOfALongerOne) {
    parse(MdqpMessage().inst_info({.inst_id = "cu2401C60000", .inst_no = 4}));
    EXPECT_EQ(inst_id_bytes(4), std::string("cu2401C60000\0\0\0\0", 16));
    parse(MdqpMessage().inst_info({.inst_id = "b", .inst_no = 4}));
    EXPECT_EQ(inst_id_bytes(4), std::string("b\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16));
}

TEST_F(ParseMdqpTest, AnEmptyIdentifierMakesTheRowsOneEmpty) {
    parse(MdqpMessage().inst_info({.inst_id = "abcdefghijklmnopqrstuvwxyz01234", .inst_no = 4}));
    EXPECT_EQ(inst_id_bytes(4), std::string("abcdefghijklmno\0", 16));
    parse(MdqpMessage().inst_info({.inst_id = "", .inst_no = 4}));
    // All of it: the card gets the row's every byte.
    EXPECT_EQ(inst_id_bytes(4), std::string(16, '\0'));
}

// Trading.

TEST_F(ParseMdqpTest, DealsFillTheirWords) {
    parse(MdqpMessage().deal_info({.inst_no = 4,
                                   .last_price = 12.345,
                                   .volume = 31,
                                   .turnover = 42949672.97,
                                   .open_interest = 4294967298.0,
                                   .highest_price = 45.0,
                                   .lowest_price = 46.0,
                                   .upper_limit_price = 37.0,
                                   .lower_limit_price = 38.0,
                                   .action_day = "20260105",
                                   .update_mill_sec = 500,
                                   .change_no = 7}));
    EXPECT_EQ(words(4), (Words{{4, 7},
                               {5, 500},
                               {27, 2},  // open interest, low and high half
                               {28, 1},
                               {29, 1},  // turnover
                               {30, 1},
                               {31, 31},
                               {32, 1235},
                               {37, 3700},
                               {38, 3800},
                               {45, 4500},
                               {46, 4600}}));
}

TEST_F(ParseMdqpTest, DealsWithoutValuesHaveZeros) {
    for (const double value : {kNoValue, kInfinity, -kInfinity, kNotANumber, -kNoValue, 1e300}) {
        std::memset(&EngineAccess::inst_table(*engine).shfe2psInstTable.rows[4], 0, 256);
        SInstTableType& before = EngineAccess::inst_table(*engine).shfe2psInstTable.rows[4];
        before.last_price = before.upper_limit_price = before.lower_limit_price = 1;
        before.high_price = before.low_price = 1;
        before.turnover = before.open_interest = 1;
        parse(MdqpMessage().deal_info({.inst_no = 4,
                                       .last_price = value,
                                       .turnover = value,
                                       .open_interest = value,
                                       .highest_price = value,
                                       .lowest_price = value,
                                       .upper_limit_price = value,
                                       .lower_limit_price = value}));
        EXPECT_EQ(words(4), Words{}) << value;
    }
}

TEST_F(ParseMdqpTest, NegativeDealsAreCutTowardsZero) {
    parse(MdqpMessage().deal_info({.inst_no = 4,
                                   .last_price = -12.34,
                                   .volume = -1,
                                   .turnover = -5.0,
                                   .open_interest = -5.0,
                                   .lower_limit_price = -1.0,
                                   .update_mill_sec = -2,
                                   .change_no = -3}));
    EXPECT_EQ(words(4), (Words{{4, 0xFFFFFFFD},
                               {5, 0xFFFFFFFE},
                               {31, 0xFFFFFFFF},
                               {32, 0xFFFFFB2F},     // -1233
                               {38, 0xFFFFFF9D}}));  // -99
}

TEST_F(ParseMdqpTest, TurnoverAndOpenInterestUseAllTheirBits) {
    parse(MdqpMessage().deal_info(
        {.inst_no = 4, .turnover = 184467440737095488.0, .open_interest = 18446744073709549568.0}));
    EXPECT_EQ(+row(4).turnover, 18'446'744'073'709'549'568U);
    EXPECT_EQ(+row(4).open_interest, 18'446'744'073'709'549'568U);
    parse(MdqpMessage().deal_info(
        {.inst_no = 4, .turnover = 184467440737095520.0, .open_interest = 18446744073709551616.0}));
    EXPECT_EQ(words(4), Words{});
}

TEST_F(ParseMdqpTest, OpenInterestIsRoundedAndNotMultiplied) {
    parse(MdqpMessage().deal_info({.inst_no = 4, .open_interest = 1234.5}));
    EXPECT_EQ(+row(4).open_interest, 1235U);
    parse(MdqpMessage().deal_info({.inst_no = 4, .open_interest = 1234.4}));
    EXPECT_EQ(+row(4).open_interest, 1234U);
}

TEST_F(ParseMdqpTest, TheTradingDayIsTheLatestSeen) {
    parse(MdqpMessage().deal_info({.action_day = "20260105"}));
    EXPECT_EQ(EngineAccess::trading_day(*engine), 20260105);
    parse(MdqpMessage().deal_info({.action_day = "20260102"}), kIne4ps);
    EXPECT_EQ(EngineAccess::trading_day(*engine), 20260105);
    parse(MdqpMessage().deal_info({.action_day = "20260106"}), kIne2ps);
    EXPECT_EQ(EngineAccess::trading_day(*engine), 20260106);
    for (const std::string_view no_date : {"", "-1", "day", "\xFF"}) {
        parse(MdqpMessage().deal_info({.action_day = no_date}));
        EXPECT_EQ(EngineAccess::trading_day(*engine), 20260106) << no_date;
    }
}

// Eight digits are read at once: a character that is none must be noticed wherever it stands, above or below
// the digits, in a table of codes that has some with the eighth bit set.
TEST_F(ParseMdqpTest, ADayEndsAtItsFirstCharacterThatIsNoDigit) {
    for (const char stranger : {'/', ':', ' ', '-', '\x01', '\x7F', '\x80', '\xB5', '\xFF'}) {
        const std::array<std::string, 7> days = {
            std::string("2026010") + stranger,      std::string("202601") + stranger + "5",
            std::string("20260") + stranger + "05", std::string("2026") + stranger + "105",
            std::string("202") + stranger + "0105", std::string("20") + stranger + "60105",
            std::string("2") + stranger + "260105"};
        constexpr std::array<std::int32_t, 7> kRead = {2026010, 202601, 20260, 2026, 202, 20, 2};
        for (std::size_t i = 0; i < days.size(); ++i) {
            EngineAccess::trading_day(*engine) = 0;
            parse(MdqpMessage().deal_info({.action_day = days[i]}));
            EXPECT_EQ(EngineAccess::trading_day(*engine), kRead[i])
                << "character " << +static_cast<unsigned char>(stranger) << " at " << 7 - i;
        }
    }
}

TEST_F(ParseMdqpTest, ADayThatBeginsWithNoDigitIsNone) {
    for (const char stranger : {'/', ':', 'x', '\x80', '\xFF'}) {
        const std::string day = std::string(1, stranger) + "0260105";
        parse(MdqpMessage().deal_info({.action_day = day}));
        EXPECT_EQ(EngineAccess::trading_day(*engine), 0) << day;
    }
}

TEST_F(ParseMdqpTest, ADayWithoutItsNulIsReadToItsEighthDigit) {
    parse(MdqpMessage().deal_info({.action_day = "202601059"}));
    EXPECT_EQ(EngineAccess::trading_day(*engine), 20260105);
}

TEST_F(ParseMdqpTest, DealsOfARefusedNumberLeaveTheTradingDay) {
    parse(MdqpMessage().deal_info({.inst_no = 16384, .action_day = "20260105"}));
    EXPECT_EQ(EngineAccess::trading_day(*engine), 0);
}

// Price levels.

TEST_F(ParseMdqpTest, LevelsThatComeBestFirstFillTheRow) {
    parse(MdqpMessage()
              .bid(4, 101.00, 1)
              .bid(4, 100.50, 2)
              .bid(4, 100.00, 3)
              .ask(4, 101.50, 4)
              .ask(4, 102.00, 5));
    EXPECT_EQ(words(4), (Words{{15, 10100},
                               {16, 1},
                               {13, 10050},
                               {14, 2},
                               {11, 10000},
                               {12, 3},
                               {25, 10150},
                               {26, 4},
                               {23, 10200},
                               {24, 5}}));
}

TEST_F(ParseMdqpTest, LevelsThatComeWorstFirstEachOverwriteTheBest) {
    parse(MdqpMessage().bid(4, 100.00, 3).bid(4, 100.50, 2).bid(4, 101.00, 1));
    EXPECT_EQ(words(4), (Words{{15, 10100}, {16, 1}}));
}

TEST_F(ParseMdqpTest, SidesMayBeMixed) {
    parse(MdqpMessage().ask(4, 102, 1).bid(4, 101, 2).ask(4, 103, 3).bid(4, 100, 4));
    EXPECT_EQ(words(4),
              (Words{{25, 10200}, {26, 1}, {15, 10100}, {16, 2}, {23, 10300}, {24, 3}, {13, 10000}, {14, 4}}));
}

TEST_F(ParseMdqpTest, ALevelWithoutAPriceHasPriceZero) {
    for (const double value : {kNoValue, kInfinity, kNotANumber, 0.0}) {
        parse(MdqpMessage().bid(4, value, 8).ask(4, value, 9));
        EXPECT_EQ(words(4), (Words{{16, 8}, {26, 9}})) << value;
    }
}

TEST_F(ParseMdqpTest, TheFirstLevelOfARunEmptiesTheRowsLevels) {
    parse(MdqpMessage().bid(4, 101, 1).bid(4, 100, 2).ask(4, 102, 3));
    // A message starts a run, whatever the last one ended with.
    parse(MdqpMessage().ask(4, 105, 4));
    EXPECT_EQ(words(4), (Words{{25, 10500}, {26, 4}}));
}

TEST_F(ParseMdqpTest, AnyOtherFieldEndsARun) {
    for (const int between : {0x0031, 0x1001, 0x1004, 0x0104, 0x7777}) {
        parse(
            MdqpMessage().bid(4, 101, 1).field(static_cast<std::uint16_t>(between), Bytes(28)).bid(4, 100, 2));
        EXPECT_EQ(words(4).at(15), 10000U) << between;
        EXPECT_FALSE(words(4).contains(13)) << between;
    }
}

TEST_F(ParseMdqpTest, ARefusedFieldEndsARunToo) {
    parse(MdqpMessage().bid(4, 101, 1).inst_info({.inst_no = 16384}).bid(4, 100, 2));
    EXPECT_EQ(words(4), (Words{{15, 10000}, {16, 2}}));
}

TEST_F(ParseMdqpTest, ALevelOfAnotherInstrumentInsideARunEmptiesNothing) {
    parse(MdqpMessage().bid(4, 101, 1));
    parse(MdqpMessage().bid(3, 90, 1).bid(4, 100, 2));
    EXPECT_EQ(words(3), (Words{{15, 9000}, {16, 1}}));
    EXPECT_EQ(words(4), (Words{{15, 10100}, {16, 1}, {13, 10000}, {14, 2}}));
}

TEST_F(ParseMdqpTest, ARefusedLevelIsTheFirstOfItsRunAllTheSame) {
    parse(MdqpMessage().bid(4, 101, 1));
    parse(MdqpMessage().bid(16384, 90, 1).bid(4, 100, 2));
    EXPECT_EQ(words(4), (Words{{15, 10100}, {16, 1}, {13, 10000}, {14, 2}}));
}

TEST_F(ParseMdqpTest, OtherDirectionsAreIgnored) {
    parse(MdqpMessage().bid(4, 101, 1));
    for (const char direction : {'2', '\0', '\1', 'b', '\xFF'}) {
        parse(MdqpMessage().bid(4, 101, 1).price_detail(
            {.inst_no = 4, .direction = direction, .price = 100, .volume = 2}));
        EXPECT_EQ(words(4), (Words{{15, 10100}, {16, 1}})) << direction;
    }
}

TEST_F(ParseMdqpTest, AnotherDirectionEmptiesTheLevelsWhenItIsTheFirstOfARun) {
    parse(MdqpMessage().bid(4, 101, 1));
    parse(MdqpMessage().price_detail({.inst_no = 4, .direction = '2', .price = 100, .volume = 2}));
    EXPECT_EQ(words(4), Words{});
}

TEST_F(ParseMdqpTest, LevelsTouchNothingElseOfTheRow) {
    parse(
        MdqpMessage().inst_info({.volume_multiple = 3, .inst_no = 4}).deal_info({.inst_no = 4, .volume = 31}));
    parse(MdqpMessage().bid(4, 101, 1).ask(4, 102, 2));
    EXPECT_EQ(words(4), (Words{{3, 3}, {31, 31}, {15, 10100}, {16, 1}, {25, 10200}, {26, 2}}));
}

// Order statistics.

TEST_F(ParseMdqpTest, OrderStatisticsFillTheirWords) {
    parse(MdqpMessage().order_statistics(
        {.inst_no = 4, .bid_volume = 39, .bid_amount = 42949672.97, .ask_volume = -1, .ask_amount = 12.345}));
    EXPECT_EQ(words(4), (Words{{39, 39}, {40, 1}, {41, 1}, {42, 0xFFFFFFFF}, {43, 1235}}));
}

TEST_F(ParseMdqpTest, AmountsMayBeNegative) {
    parse(MdqpMessage().order_statistics(
        {.inst_no = 4, .bid_amount = -12.34, .ask_amount = -92233720368547760.0}));
    EXPECT_EQ(+row(4).bid_amount, -1233);
    EXPECT_EQ(+row(4).ask_amount, std::numeric_limits<std::int64_t>::min());
}

TEST_F(ParseMdqpTest, AmountsWithoutAValueAreZero) {
    for (const double value :
         {kNoValue, kInfinity, -kInfinity, kNotANumber, 92233720368547760.0, -92233720368547776.0}) {
        EngineAccess::inst_table(*engine).shfe2psInstTable.rows[4].bid_amount = 1;
        EngineAccess::inst_table(*engine).shfe2psInstTable.rows[4].ask_amount = 1;
        parse(MdqpMessage().order_statistics({.inst_no = 4, .bid_amount = value, .ask_amount = value}));
        EXPECT_EQ(words(4), Words{}) << value;
    }
}

// Packet numbers.

TEST_F(ParseMdqpTest, EachFeedsPacketNumberHasARegister) {
    parse(MdqpMessage().packet_no(11).tail(), kShfe2ps);
    parse(MdqpMessage().packet_no(12).tail(), kShfe4ps);
    parse(MdqpMessage().packet_no(13).tail(), kIne2ps);
    parse(MdqpMessage().packet_no(-1).tail(), kIne4ps);
    EXPECT_EQ(sdk().register_accesses(), (AccessTrace{write_of(0x11110, 11), write_of(0x21110, 12),
                                                      write_of(0x11111, 13), write_of(0x21111, 0xFFFFFFFF)}));
    EXPECT_THAT(filled_rows(), ElementsAre());
    EXPECT_EQ(new_log(), Strings{});
}

// The end of a snapshot.

TEST_F(ParseMdqpTest, OnlyTheLastFlagEndsASnapshot) {
    for (const int flag : {0x11, 0x00, 0x02, 0x10, 0x81, 0xFF}) {
        EXPECT_EQ(parse(MdqpMessage(static_cast<std::uint8_t>(flag)).inst_info({.inst_no = 1})), 0);
    }
    EXPECT_EQ(finished(), 0);
    EXPECT_THAT(ports(), ElementsAre(kShfe2ps, kShfe4ps, kIne2ps, kIne4ps));
    EXPECT_EQ(sdk().register_accesses(), AccessTrace{});
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ParseMdqpTest, TheEndOfTheFirstShfeFeed) {
    EngineAccess::inst_count(*engine) = {11, 12, 13, 14};
    EXPECT_EQ(parse(MdqpMessage(0x01), kShfe2ps), 0);
    EXPECT_EQ(finished(), 0x01);
    EXPECT_THAT(ports(), ElementsAre(0, kShfe4ps, kIne2ps, kIne4ps));
    EXPECT_EQ(sdk().register_accesses(), (AccessTrace{write_of(0x1F14, 11)}));
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]shfe2ps init finished, total instruments:11"));
}

TEST_F(ParseMdqpTest, TheEndOfTheSecondShfeFeed) {
    EngineAccess::inst_count(*engine) = {11, 12, 13, 14};
    EXPECT_EQ(parse(MdqpMessage(0x01), kShfe4ps), 0);
    EXPECT_EQ(finished(), 0x02);
    EXPECT_THAT(ports(), ElementsAre(kShfe2ps, 0, kIne2ps, kIne4ps));
    EXPECT_EQ(sdk().register_accesses(), (AccessTrace{write_of(0x1F14, 12)}));
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]shfe4ps init finished, total instruments:12"));
}

TEST_F(ParseMdqpTest, TheEndOfTheFirstIneFeed) {
    EngineAccess::inst_count(*engine) = {11, 12, 13, 14};
    EXPECT_EQ(parse(MdqpMessage(0x01), kIne2ps), 0);
    EXPECT_EQ(finished(), 0x04);
    EXPECT_THAT(ports(), ElementsAre(kShfe2ps, kShfe4ps, 0, kIne4ps));
    EXPECT_EQ(sdk().register_accesses(), (AccessTrace{write_of(0x1F15, 13)}));
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]ine2ps init finished, total instruments:13"));
}

TEST_F(ParseMdqpTest, TheEndOfTheSecondIneFeed) {
    EngineAccess::inst_count(*engine) = {11, 12, 13, 14};
    EXPECT_EQ(parse(MdqpMessage(0x01), kIne4ps), 0);
    EXPECT_EQ(finished(), 0x08);
    EXPECT_THAT(ports(), ElementsAre(kShfe2ps, kShfe4ps, kIne2ps, 0));
    EXPECT_EQ(sdk().register_accesses(), (AccessTrace{write_of(0x1F15, 14)}));
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]ine4ps init finished, total instruments:14"));
}

TEST_F(ParseMdqpTest, FinishedFeedsAddUp) {
    parse(MdqpMessage(0x01), kIne4ps);
    parse(MdqpMessage(0x01), kShfe2ps);
    EXPECT_EQ(finished(), 0x09);
    parse(MdqpMessage(0x01), kIne2ps);
    parse(MdqpMessage(0x01), kShfe4ps);
    EXPECT_EQ(finished(), 0x0F);
}

TEST_F(ParseMdqpTest, TheEndOfASnapshotClosesTheSessionOfItsPort) {
    EngineAccess::session(*engine, kShfe2ps).init = 1;
    EngineAccess::session(*engine, kShfe2ps).next_expt_seq = 77;
    EngineAccess::session(*engine, kShfe4ps).init = 1;
    parse(MdqpMessage(0x01), kShfe2ps);
    EXPECT_EQ(EngineAccess::peek_session(*engine, kShfe2ps).init, 0);
    EXPECT_EQ(EngineAccess::peek_session(*engine, kShfe2ps).next_expt_seq, 77U);
    EXPECT_EQ(EngineAccess::peek_session(*engine, kShfe4ps).init, 1);
}

TEST_F(ParseMdqpTest, AFinishedFeedsPortIsUnknown) {
    parse(MdqpMessage(0x01), kShfe2ps);
    new_log();
    EXPECT_EQ(parse(MdqpMessage().inst_info({.volume_multiple = 1, .inst_no = 1}), kShfe2ps), -1);
    EXPECT_THAT(new_log(),
                ElementsAre("[D][_ParseMdqp]src_host[0] src_port[0] dst_host[0] dst_port[0] unknown."));
    EXPECT_THAT(filled_rows(), ElementsAre());
}

TEST_F(ParseMdqpTest, TheFieldsOfTheLastMessageCount) {
    parse(MdqpMessage(0x01).packet_no(88).inst_info({.volume_multiple = 5, .inst_no = 9}));
    EXPECT_EQ(words(9), (Words{{3, 5}}));
    EXPECT_EQ(sdk().register_accesses(), (AccessTrace{write_of(0x11110, 88), write_of(0x1F14, 10)}));
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]shfe2ps init finished, total instruments:10"));
}

// Nearly full tables.

TEST_F(ParseMdqpTest, AShfeTableIsToldToBeNearlyFullAtTwelveThousandEightHundredAndOne) {
    EngineAccess::inst_count(*engine) = {12800, 12801, 0, 0};
    parse(MdqpMessage(0x01), kShfe2ps);
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]shfe2ps init finished, total instruments:12800"));
    parse(MdqpMessage(0x01), kShfe4ps);
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]shfe4ps init finished, total instruments:12801",
                                       "[W][_ParseMdqp]shfe_inst_cnt_4ps is 12801, more than 80% max cnt."));
}

TEST_F(ParseMdqpTest, NearlyFullShfeTablesAreToldOnce) {
    EngineAccess::inst_count(*engine) = {12801, 16384, 0, 0};
    parse(MdqpMessage(0x01), kShfe2ps);
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]shfe2ps init finished, total instruments:12801",
                                       "[W][_ParseMdqp]shfe_inst_cnt_2ps is 12801, more than 80% max cnt."));
    parse(MdqpMessage(0x01), kShfe4ps);
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]shfe4ps init finished, total instruments:16384"));
    EngineAccess::dst_port(*engine) = {kShfe2ps, 0, 0, 0};
    parse(MdqpMessage(0x01), kShfe2ps);
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]shfe2ps init finished, total instruments:12801"));
}

TEST_F(ParseMdqpTest, AnIneTableIsToldToBeNearlyFullAtThreeThousandTwoHundredAndOne) {
    EngineAccess::inst_count(*engine) = {0, 0, 3200, 3201};
    parse(MdqpMessage(0x01), kIne2ps);
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]ine2ps init finished, total instruments:3200"));
    parse(MdqpMessage(0x01), kIne4ps);
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]ine4ps init finished, total instruments:3201",
                                       "[W][_ParseMdqp]ine_inst_cnt_4ps is 3201, more than 80% max cnt. "));
}

TEST_F(ParseMdqpTest, NearlyFullIneTablesAreToldOnce) {
    EngineAccess::inst_count(*engine) = {0, 0, 4096, 3201};
    parse(MdqpMessage(0x01), kIne2ps);
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]ine2ps init finished, total instruments:4096",
                                       "[W][_ParseMdqp]ine_inst_cnt_2ps is 4096, more than 80% max cnt. "));
    parse(MdqpMessage(0x01), kIne4ps);
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]ine4ps init finished, total instruments:3201"));
}

TEST_F(ParseMdqpTest, EachExchangeTellsItsFirstNearlyFullTable) {
    EngineAccess::inst_count(*engine) = {12801, 0, 0, 3201};
    parse(MdqpMessage(0x01), kShfe2ps);
    parse(MdqpMessage(0x01), kIne4ps);
    EXPECT_THAT(new_log(), ElementsAre("[I][_ParseMdqp]shfe2ps init finished, total instruments:12801",
                                       "[W][_ParseMdqp]shfe_inst_cnt_2ps is 12801, more than 80% max cnt.",
                                       "[I][_ParseMdqp]ine4ps init finished, total instruments:3201",
                                       "[W][_ParseMdqp]ine_inst_cnt_4ps is 3201, more than 80% max cnt. "));
}

}  // namespace
}  // namespace kova::test
