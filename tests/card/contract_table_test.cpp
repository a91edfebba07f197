// The block write of a contract table: every register access, every line.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "card/access_trace.h"
#include "card/engine_test.h"

namespace {

using kova::test::AccessTrace;
using kova::test::append;
using kova::test::first_difference;
using kova::test::Strings;
using kova::test::write_of;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::StartsWith;

constexpr std::uint32_t kWriteAddr = 0x11000;
constexpr std::uint32_t kWriteData = 0x11001;

/** A row with a value of its own in every field. */
SInstTableType row_of_distinct_values() {
    SInstTableType row{};
    row.config = 0x80000003;
    row.price_tick = 1001;
    row.codec_price = 1002;
    row.vol_multiple = 1003;
    row.change_no = 1004;
    row.update_mill_sec = 1005;
    row.updatetime = 1006;
    row.bid5_price = 1007;
    row.bid5_vol = 1008;
    row.bid4_price = 1009;
    row.bid4_vol = 1010;
    row.bid3_price = 1011;
    row.bid3_vol = 1012;
    row.bid2_price = 1013;
    row.bid2_vol = 1014;
    row.bid1_price = 1015;
    row.bid1_vol = 1016;
    row.ask5_price = 1017;
    row.ask5_vol = 1018;
    row.ask4_price = 1019;
    row.ask4_vol = 1020;
    row.ask3_price = 1021;
    row.ask3_vol = 1022;
    row.ask2_price = 1023;
    row.ask2_vol = 1024;
    row.ask1_price = 1025;
    row.ask1_vol = 1026;
    row.open_interest = 0x0000001B0000001C;
    row.turnover = 0x0000001D0000001E;
    row.volume = 1031;
    row.last_price = -1032;
    std::memcpy(row.inst_id, "cu2401C60000", 13);
    row.upper_limit_price = 1037;
    row.lower_limit_price = 1038;
    row.bid_volume = 1039;
    row.bid_amount = -2;
    row.ask_volume = 1042;
    row.ask_amount = 0x0000002B0000002C;
    row.high_price = 1045;
    row.low_price = 1046;
    row.reserved[0] = 1047;
    row.reserved[16] = 1063;
    return row;
}

/** The same row as the card gets it. */
constexpr std::array<std::uint32_t, 64> kWordsOfDistinctValues = {
    0x80000003, 1001,       1002,       1003,       1004,       1005, 1006, 1007,  // config to bid5_price
    1008,       1009,       1010,       1011,       1012,       1013, 1014, 1015,  // to bid1_price
    1016,       1017,       1018,       1019,       1020,       1021, 1022, 1023,  // to ask2_price
    1024,       1025,       1026,       0x1C,       0x1B,       0x1E, 0x1D, 1031,  // to volume
    0xFFFFFBF8, 0x34327563, 0x36433130, 0x30303030, 0,                             // last_price, inst_id
    1037,       1038,       1039,       0xFFFFFFFE, 0xFFFFFFFF, 1042, 0x2C,        // limits to ask_amount
    0x2B,       1045,       1046,       1047,       0,          0,    0,    0,     // to low_price, reserved
    0,          0,          0,          0,          0,          0,    0,    0,    0, 0, 0, 1063};

constexpr const char* kFieldsOfDistinctValues =
    "inst_id:cu2401C60000,price_tick:1001,codec_price:1002,vol_multiple:1003,change_no:1004,"
    "update_mill_sec:1005,updatetime:1006,bid5_price:1007,bid5_vol:1008,bid4_price:1009,bid4_vol:1010,"
    "bid3_price:1011,bid3_vol:1012,bid2_price:1013,bid2_vol:1014,bid1_price:1015,bid1_vol:1016,"
    "ask5_price:1017,ask5_vol:1018,ask4_price:1019,ask4_vol:1020,ask3_price:1021,ask3_vol:1022,"
    "ask2_price:1023,ask2_vol:1024,ask1_price:1025,ask1_vol:1026,open_interest:115964117020,"
    "turnover:124554051614,volume:1031,last_price:-1032,upper_limit_price:1037,lower_limit_price:1038,"
    "bid_volume=1039,bid_amount:-2,ask_volume=1042,ask_amount:184683593772";

/** What writing one row leaves in the trace; its words, or zeros. */
AccessTrace row_written(std::uint32_t row, const std::array<std::uint32_t, 64>& words) {
    AccessTrace trace;
    for (std::uint32_t j = 0; j < 64; ++j) {
        trace.push_back(write_of(kWriteData, words.at(j)));
        trace.push_back(write_of(kWriteAddr, row * 64 + j));
    }
    return trace;
}
AccessTrace row_cleared(std::uint32_t row) {
    return row_written(row, {});
}

class ContractTableTest : public kova::test::EngineTest {
 protected:
    void SetUp() override { start_with_callback(5); }

    void write(bool is_enabled, int inst_count, int inst_max_count) {
        EXPECT_EQ(EngineAccess::write_contract_table(*engine, rows.data(), is_enabled, kWriteAddr, kWriteData,
                                                     inst_count, inst_max_count),
                  0);
    }

    std::vector<SInstTableType> rows = std::vector<SInstTableType>(4);
};

TEST_F(ContractTableTest, ARowIsWrittenWordByWordEachBeforeItsAddress) {
    rows[0] = row_of_distinct_values();
    write(true, 1, 1);
    const AccessTrace trace = sdk().register_accesses();
    ASSERT_EQ(trace.size(), 128U);
    EXPECT_EQ(trace[0], write_of(0x11001, 0x80000003));
    EXPECT_EQ(trace[1], write_of(0x11000, 0));
    EXPECT_EQ(trace[2], write_of(0x11001, 1001));
    EXPECT_EQ(trace[3], write_of(0x11000, 1));
    EXPECT_EQ(trace[126], write_of(0x11001, 1063));
    EXPECT_EQ(trace[127], write_of(0x11000, 63));
    EXPECT_EQ(first_difference(trace, row_written(0, kWordsOfDistinctValues)), -1);
}

TEST_F(ContractTableTest, TheRowsBehindTheCountAreCleared) {
    rows.assign(4, row_of_distinct_values());
    write(true, 2, 4);
    AccessTrace expected;
    append(expected, row_written(0, kWordsOfDistinctValues));
    append(expected, row_written(1, kWordsOfDistinctValues));
    append(expected, row_cleared(2));
    append(expected, row_cleared(3));
    EXPECT_EQ(first_difference(sdk().register_accesses(), expected), -1);
}

TEST_F(ContractTableTest, EachRowOfTheTableIsTold) {
    rows[0] = row_of_distinct_values();
    rows[1] = row_of_distinct_values();
    rows[1].price_tick = 5;
    write(true, 2, 4);
    std::string second(kFieldsOfDistinctValues);
    second.replace(second.find("price_tick:1001"), 15, "price_tick:5");
    EXPECT_THAT(new_log(),
                ElementsAre("[D][_WriteContractTable]index:0," + std::string(kFieldsOfDistinctValues) +
                                ",high_price:1045,low_price:1046.",
                            "[D][_WriteContractTable]index:1," + second + ",high_price:1045,low_price:1046."));
}

TEST_F(ContractTableTest, RowsAreToldOnlyAtTheirLevel) {
    CCommonLog::GetInstance()->SetLogLevel(static_cast<ELOGLEVEL>(7));
    write(true, 2, 4);
    EXPECT_THAT(new_log(), IsEmpty());
}

TEST_F(ContractTableTest, RowsOfADisabledFeedAreToldAndNotWritten) {
    rows[0] = row_of_distinct_values();
    write(false, 1, 3);
    AccessTrace expected = row_cleared(1);
    append(expected, row_cleared(2));
    EXPECT_EQ(first_difference(sdk().register_accesses(), expected), -1);
    EXPECT_THAT(new_log(),
                ElementsAre("[D][_WriteContractTable]index:0," + std::string(kFieldsOfDistinctValues) +
                            ",high_price:1045,low_price:1046."));
}

TEST_F(ContractTableTest, WithoutInstrumentsTheWholeTableIsClearedAndNothingTold) {
    rows.assign(4, row_of_distinct_values());
    write(true, 0, 4);
    AccessTrace expected;
    for (const std::uint32_t row : {0U, 1U, 2U, 3U}) {
        append(expected, row_cleared(row));
    }
    EXPECT_EQ(first_difference(sdk().register_accesses(), expected), -1);
    EXPECT_THAT(new_log(), IsEmpty());
}

TEST_F(ContractTableTest, ANegativeCountIsNoInstruments) {
    write(true, -1, 1);
    EXPECT_EQ(first_difference(sdk().register_accesses(), row_cleared(0)), -1);
    EXPECT_THAT(new_log(), IsEmpty());
}

TEST_F(ContractTableTest, TheRegistersAreThoseOfTheCaller) {
    rows[0] = row_of_distinct_values();
    EXPECT_EQ(EngineAccess::write_contract_table(*engine, rows.data(), true, 0x21004, 0x21005, 1, 2), 0);
    const AccessTrace trace = sdk().register_accesses();
    ASSERT_EQ(trace.size(), 256U);
    EXPECT_EQ(trace[0], write_of(0x21005, 0x80000003));
    EXPECT_EQ(trace[1], write_of(0x21004, 0));
    EXPECT_EQ(trace[254], write_of(0x21005, 0));
    EXPECT_EQ(trace[255], write_of(0x21004, 127));
}

TEST_F(ContractTableTest, AnIdentifierWithoutANulIsToldToItsSixteenthByte) {
    std::memcpy(rows[0].inst_id, "0123456789abcdef", 16);
    rows[0].upper_limit_price = 0x21212121;  // would be text, too
    write(true, 1, 1);
    EXPECT_THAT(
        new_log(),
        ElementsAre(StartsWith("[D][_WriteContractTable]index:0,inst_id:0123456789abcdef,price_tick:0,")));
}

TEST_F(ContractTableTest, WhatIsWrittenStaysInMemory) {
    rows[0] = row_of_distinct_values();
    rows[1] = row_of_distinct_values();
    write(true, 1, 2);
    const SInstTableType expected = row_of_distinct_values();
    EXPECT_EQ(std::memcmp(&rows[0], &expected, sizeof(expected)), 0);
    EXPECT_EQ(std::memcmp(&rows[1], &expected, sizeof(expected)), 0);
}

// Deliberate errors.

class ContractTableFaultTest : public ContractTableTest {
 protected:
    void SetUp() override {
        ContractTableTest::SetUp();
        rows.assign(4, row_of_distinct_values());
        rows[1].upper_limit_price = 1500;
        rows[1].lower_limit_price = 500;
        U50ConfigInfo& config = EngineAccess::config(*engine);
        config.debug_flag = true;
        config.error_instno = 1;
        config.error_limit_parts = 4;
    }

    void write_with_case(std::uint16_t error_case) {
        EngineAccess::config(*engine).error_case = error_case;
        write(true, 3, 4);
    }

    /** The words of the second row with some of them replaced. */
    static std::array<std::uint32_t, 64> words_with(
        const std::vector<std::pair<std::size_t, std::uint32_t>>& changes) {
        std::array<std::uint32_t, 64> words = kWordsOfDistinctValues;
        words[37] = 1500;
        words[38] = 500;
        for (const auto& [number, word] : changes) {
            words.at(number) = word;
        }
        return words;
    }
    /** What goes to the card when the second row consists of these words. */
    static AccessTrace trace_with(const std::array<std::uint32_t, 64>& second_row) {
        AccessTrace trace = row_written(0, kWordsOfDistinctValues);
        append(trace, row_written(1, second_row));
        append(trace, row_written(2, kWordsOfDistinctValues));
        append(trace, row_cleared(3));
        return trace;
    }
};

TEST_F(ContractTableFaultTest, TheRowIsToldAsItWasBeforeTheErrorIsMade) {
    write_with_case(2);
    const Strings log = new_log();
    ASSERT_EQ(log.size(), 5U);
    std::string fields(kFieldsOfDistinctValues);
    fields.replace(fields.find("upper_limit_price:1037,lower_limit_price:1038"), 45,
                   "upper_limit_price:1500,lower_limit_price:500");
    EXPECT_EQ(log[0], "[D][_WriteContractTable]error_instno:1," + fields);
    EXPECT_EQ(log[1], "[W][_WriteContractTable]debug mode error_case:2");
    EXPECT_THAT(log[2], StartsWith("[D][_WriteContractTable]index:0,inst_id:cu2401C60000,"));
    fields.replace(fields.find("bid2_vol:1014,bid1_price:1015"), 29, "bid2_vol:0,bid1_price:0");
    EXPECT_EQ(log[3], "[D][_WriteContractTable]index:1," + fields + ",high_price:1045,low_price:1046.");
    EXPECT_THAT(log[4], StartsWith("[D][_WriteContractTable]index:2,inst_id:cu2401C60000,"));
}

TEST_F(ContractTableFaultTest, SwappedLevelsGoToTheCard) {
    write_with_case(0);
    EXPECT_EQ(first_difference(sdk().register_accesses(),
                               trace_with(words_with({{13, 1015}, {15, 1013}, {17, 1019}, {19, 1017}}))),
              -1);
    EXPECT_EQ(rows[1].bid1_price, 1013);
    EXPECT_EQ(rows[1].ask5_price, 1019);
}

TEST_F(ContractTableFaultTest, NarrowLimitsGoToTheCard) {
    write_with_case(1);
    EXPECT_EQ(first_difference(sdk().register_accesses(), trace_with(words_with({{37, 1066}, {38, 934}}))), -1);
    EXPECT_EQ(rows[1].upper_limit_price, 1066);
    EXPECT_EQ(rows[1].lower_limit_price, 934);
}

TEST_F(ContractTableFaultTest, TheSizeOfTheErrorIsTheConfiguredOne) {
    EngineAccess::config(*engine).error_limit_parts = 0;
    write_with_case(1);
    EXPECT_EQ(first_difference(sdk().register_accesses(), trace_with(words_with({{37, 2000}, {38, 0}}))), -1);
}

TEST_F(ContractTableFaultTest, OnePartOrThirtyOneLeaveTheLimits) {
    for (const int parts : {1, 31, 65535}) {
        EngineAccess::config(*engine).error_limit_parts = static_cast<std::uint16_t>(parts);
        sdk().start_recording();
        write_with_case(1);
        EXPECT_EQ(first_difference(sdk().register_accesses(), trace_with(words_with({}))), -1) << parts;
    }
}

TEST_F(ContractTableFaultTest, EmptyLevelsGoToTheCard) {
    write_with_case(2);
    EXPECT_EQ(first_difference(sdk().register_accesses(), trace_with(words_with({{14, 0}, {15, 0}}))), -1);
}

TEST_F(ContractTableFaultTest, AnotherCaseIsToldAndChangesNothing) {
    write_with_case(65535);
    EXPECT_EQ(first_difference(sdk().register_accesses(), trace_with(words_with({}))), -1);
    const Strings log = new_log();
    ASSERT_EQ(log.size(), 5U);
    EXPECT_THAT(log[0], StartsWith("[D][_WriteContractTable]error_instno:1,inst_id:cu2401C60000,"));
    EXPECT_EQ(log[1], "[W][_WriteContractTable]debug mode error_case:65535");
}

TEST_F(ContractTableFaultTest, TheLastRowOfTheCountMayBeMadeWrong) {
    EngineAccess::config(*engine).error_instno = 2;
    write_with_case(2);
    EXPECT_EQ(rows[2].bid1_price, 0);
    EXPECT_EQ(rows[2].bid2_vol, 0U);
}

TEST_F(ContractTableFaultTest, ANumberThatIsTheCountMakesNothingWrong) {
    EngineAccess::config(*engine).error_instno = 3;
    write_with_case(2);
    EXPECT_EQ(first_difference(sdk().register_accesses(), trace_with(words_with({}))), -1);
    EXPECT_THAT(new_log(), ElementsAre(StartsWith("[D][_WriteContractTable]index:0,"),
                                       StartsWith("[D][_WriteContractTable]index:1,"),
                                       StartsWith("[D][_WriteContractTable]index:2,")));
}

TEST_F(ContractTableFaultTest, WithoutTheSwitchNothingIsMadeWrong) {
    EngineAccess::config(*engine).debug_flag = false;
    write_with_case(2);
    EXPECT_EQ(first_difference(sdk().register_accesses(), trace_with(words_with({}))), -1);
    EXPECT_EQ(new_log().size(), 3U);
}

TEST_F(ContractTableFaultTest, AnEmptyTableHasNoRowToMakeWrong) {
    EngineAccess::config(*engine).error_instno = 0;
    EngineAccess::config(*engine).error_case = 2;
    write(true, 0, 4);
    EXPECT_THAT(new_log(), IsEmpty());
    EXPECT_EQ(rows[0].bid1_price, 1015);
}

TEST_F(ContractTableFaultTest, ADisabledFeedsRowIsMadeWrongInMemory) {
    EngineAccess::config(*engine).error_case = 2;
    write(false, 3, 3);
    EXPECT_EQ(sdk().register_accesses(), AccessTrace{});
    EXPECT_EQ(rows[1].bid1_price, 0);
    EXPECT_EQ(new_log().size(), 5U);
}

// Whole tables.

TEST_F(ContractTableTest, AFullTableIsClearedFromItsFirstToItsLastWord) {
    sdk().start_recording_registers();
    write(true, 0, 4096);
    const AccessTrace trace = sdk().register_accesses();
    ASSERT_EQ(trace.size(), 524288U);
    for (std::uint32_t word = 0; word < 262144; ++word) {
        ASSERT_EQ(trace[2 * word], write_of(kWriteData, 0)) << word;
        ASSERT_EQ(trace[2 * word + 1], write_of(kWriteAddr, word)) << word;
    }
}

class ContractTablesTest : public kova::test::EngineTest {
 protected:
    void SetUp() override {
        start_with_callback(5);
        sdk().stop();  // five million accesses are too many to keep
        std::memset(&card->memory().tables, 0xEE, sizeof(card->memory().tables));
        U50InstTable& tables = EngineAccess::inst_table(*engine);
        for (SInstTableType* rows : {tables.shfe2psInstTable.rows, tables.shfe4psInstTable.rows,
                                     tables.ine2psInstTable.rows, tables.ine4psInstTable.rows}) {
            rows[0] = rows[1] = row_of_distinct_values();
        }
        std::memcpy(tables.shfe2psInstTable.rows[0].inst_id, "first", 6);
        std::memcpy(tables.shfe4psInstTable.rows[0].inst_id, "second", 7);
        std::memcpy(tables.ine2psInstTable.rows[0].inst_id, "third", 6);
        std::memcpy(tables.ine4psInstTable.rows[0].inst_id, "fourth", 7);
        EngineAccess::inst_count(*engine) = {1, 0x100000001, 1, 1};  // only the low half of a count counts
    }

    void write_with_enabled(std::uint8_t mask) {
        EngineAccess::config(*engine).enabled_mask.enabled_mask = mask;
        EngineAccess::write_contract_tables(*engine);
    }

    /** Lines up to the identifier of a row. */
    Strings line_heads() {
        Strings lines = new_log();
        for (std::string& line : lines) {
            line.resize(std::min(line.size(), line.find(",price_tick")));
        }
        return lines;
    }

    /** The first row of a table of the card, and how many bytes behind it are not zero. */
    template <typename Table>
    static std::pair<std::string, std::ptrdiff_t> summary(const Table& table) {
        const auto* const bytes = reinterpret_cast<const char*>(table.data());
        return {table[0].inst_id[0] == '\xEE' ? "untouched" : table[0].inst_id,
                std::count_if(bytes + 256, bytes + sizeof(table), [](char byte) { return byte != 0; })};
    }
    std::vector<std::pair<std::string, std::ptrdiff_t>> card_tables() {
        const kova::sim::ContractTables& tables = card->memory().tables;
        return {summary(tables.shfe_2ps), summary(tables.shfe_4ps), summary(tables.ine_2ps),
                summary(tables.ine_4ps)};
    }
};

TEST_F(ContractTablesTest, TablesAreWrittenInTheOrderOfTheFeedsAndOnlyEnabledOnesFilled) {
    write_with_enabled(0x05);
    EXPECT_THAT(card_tables(),
                ElementsAre(Pair("first", 0), Pair("untouched", 0), Pair("third", 0), Pair("untouched", 0)));
    EXPECT_THAT(line_heads(), ElementsAre("[D][_WriteContractTable]index:0,inst_id:first",
                                          "[D][_WriteContractTable]index:0,inst_id:second",
                                          "[D][_WriteContractTable]index:0,inst_id:third",
                                          "[D][_WriteContractTable]index:0,inst_id:fourth"));
    const SInstTableType expected = EngineAccess::peek_inst_table(*engine).ine2psInstTable.rows[0];
    EXPECT_EQ(std::memcmp(card->memory().tables.ine_2ps.data(), &expected, sizeof(expected)), 0);
}

TEST_F(ContractTablesTest, TheConfiguredRowIsMadeWrongInEveryTableThatHasIt) {
    EngineAccess::inst_count(*engine) = {0, 1, 1, 1};
    EngineAccess::config(*engine).debug_flag = true;
    EngineAccess::config(*engine).error_instno = 0;
    EngineAccess::config(*engine).error_case = 2;
    write_with_enabled(0x0A);
    EXPECT_THAT(line_heads(), ElementsAre("[D][_WriteContractTable]error_instno:0,inst_id:second",
                                          "[W][_WriteContractTable]debug mode error_case:2",
                                          "[D][_WriteContractTable]index:0,inst_id:second",
                                          "[D][_WriteContractTable]error_instno:0,inst_id:third",
                                          "[W][_WriteContractTable]debug mode error_case:2",
                                          "[D][_WriteContractTable]index:0,inst_id:third",
                                          "[D][_WriteContractTable]error_instno:0,inst_id:fourth",
                                          "[W][_WriteContractTable]debug mode error_case:2",
                                          "[D][_WriteContractTable]index:0,inst_id:fourth"));
    EXPECT_THAT(card_tables(),
                ElementsAre(Pair("", 0), Pair("second", 0), Pair("untouched", 0), Pair("fourth", 0)));
    EXPECT_EQ(card->memory().tables.shfe_4ps[0].bid1_price, 0);
    EXPECT_EQ(card->memory().tables.ine_4ps[0].bid2_vol, 0U);
    EXPECT_EQ(card->memory().tables.ine_4ps[0].bid2_price, 1013);
}

}  // namespace
