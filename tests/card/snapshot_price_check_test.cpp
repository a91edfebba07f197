// The prices of a whole snapshot: which rows are asked in which order, and what a bad one leaves behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "card/engine_test.h"

namespace {

using kova::test::Strings;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

void name(SInstTableType& row, std::string_view inst_id) {
    std::memset(row.inst_id, 0, sizeof(row.inst_id));
    inst_id.copy(row.inst_id, sizeof(row.inst_id));
}

/** A book that passes: 105 to 101 over 100 to 96 between 110 and 90. */
SInstTableType good_row(std::string_view inst_id) {
    SInstTableType row{};
    name(row, inst_id);
    row.upper_limit_price = 110;
    row.lower_limit_price = 90;
    row.ask5_price = 105;
    row.ask4_price = 104;
    row.ask3_price = 103;
    row.ask2_price = 102;
    row.ask1_price = 101;
    row.bid1_price = 100;
    row.bid2_price = 99;
    row.bid3_price = 98;
    row.bid4_price = 97;
    row.bid5_price = 96;
    return row;
}

/** A book whose lowest bid is below the limit: -1. */
SInstTableType row_outside_limits(std::string_view inst_id) {
    SInstTableType row = good_row(inst_id);
    row.bid5_price = 89;
    return row;
}

/** A book whose best bid is its best ask: -2. */
SInstTableType crossed_row(std::string_view inst_id) {
    SInstTableType row = good_row(inst_id);
    row.bid1_price = 101;
    return row;
}

class SnapshotPriceCheckTest : public kova::test::EngineTest {
 protected:
    void SetUp() override {
        start_with_callback(5);
        EngineAccess::mark_snapshot_dirty(*engine);
    }

    int check() { return EngineAccess::price_check(*engine); }
    U50InstTable& tables() { return EngineAccess::inst_table(*engine); }
    U50InstCount& counts() { return EngineAccess::inst_count(*engine); }

    /** The identifiers of the rows that were found bad, in the order of the log. */
    Strings bad_rows() {
        Strings rows;
        for (const std::string& line : new_log()) {
            if (line.starts_with("[E][ShfeInstPriceCheck]inst_id [")) {
                rows.push_back(line.substr(line.find("inst_id")));
            }
        }
        return rows;
    }
};

TEST_F(SnapshotPriceCheckTest, GoodRowsPassSilently) {
    tables().shfe2psInstTable.rows[0] = good_row("cu2401");
    tables().ine4psInstTable.rows[1] = good_row("sc2401");
    counts() = {1, 0, 0, 2};
    EXPECT_EQ(check(), 0);
    EXPECT_THAT(new_log(), IsEmpty());
    EXPECT_TRUE(EngineAccess::price_error_inst_ids(*engine).empty());
}

TEST_F(SnapshotPriceCheckTest, RowsWithoutPricesPass) {
    counts() = {3, 3, 3, 3};
    EXPECT_EQ(check(), 0);
    EXPECT_THAT(new_log(), IsEmpty());
}

TEST_F(SnapshotPriceCheckTest, ABadRowIsToldWholeAndRemembered) {
    SInstTableType& row = tables().shfe2psInstTable.rows[3];
    row = good_row("cu2401");
    row.upper_limit_price = 7654321;
    row.lower_limit_price = -10;
    row.ask5_price = 0;
    row.ask4_price = 0;
    row.bid2_price = 100;
    row.bid5_price = -9;
    counts() = {4, 0, 0, 0};
    EXPECT_EQ(check(), -2);
    EXPECT_THAT(new_log(), ElementsAre("[W][CheckPrice]The price is abnormal, price index is :6 ",
                                       "[E][ShfeInstPriceCheck]inst_id [cu2401] inst_no[3]",
                                       "[E][ShfeInstPriceCheck]upper_price is [ 7654321]",
                                       "[E][ShfeInstPriceCheck]lower_price is [     -10]",
                                       "[E][ShfeInstPriceCheck]ask5_price is [       0]",
                                       "[E][ShfeInstPriceCheck]ask4_price is [       0]",
                                       "[E][ShfeInstPriceCheck]ask3_price is [     103]",
                                       "[E][ShfeInstPriceCheck]ask2_price is [     102]",
                                       "[E][ShfeInstPriceCheck]ask1_price is [     101]",
                                       "[E][ShfeInstPriceCheck]bid1_price is [     100]",
                                       "[E][ShfeInstPriceCheck]bid2_price is [     100]",
                                       "[E][ShfeInstPriceCheck]bid3_price is [      98]",
                                       "[E][ShfeInstPriceCheck]bid4_price is [      97]",
                                       "[E][ShfeInstPriceCheck]bid5_price is [      -9]"));
    EXPECT_THAT(EngineAccess::price_error_inst_ids(*engine), ElementsAre("cu2401"));
}

TEST_F(SnapshotPriceCheckTest, EachKindOfErrorHasItsResult) {
    counts() = {1, 0, 0, 0};
    tables().shfe2psInstTable.rows[0] = crossed_row("cu2401");
    EXPECT_EQ(check(), -2);
    EXPECT_EQ(new_log().front(), "[W][CheckPrice]The price is abnormal, price index is :5 ");
    tables().shfe2psInstTable.rows[0] = row_outside_limits("cu2402");
    EXPECT_EQ(check(), -1);
    EXPECT_EQ(new_log().front(),
              "[W][CheckPrice](price > up) or (price < lower), price is 89, up is 110, lower is 90, "
              "shfe2psInstTable index is :9");
    EXPECT_THAT(EngineAccess::price_error_inst_ids(*engine), ElementsAre("cu2401", "cu2402"));
}

TEST_F(SnapshotPriceCheckTest, TheLineNamesTheFirstTableWhateverTheTable) {
    tables().ine4psInstTable.rows[0] = row_outside_limits("sc2401");
    counts() = {0, 0, 0, 1};
    EXPECT_EQ(check(), -1);
    EXPECT_EQ(new_log().front(),
              "[W][CheckPrice](price > up) or (price < lower), price is 89, up is 110, lower is 90, "
              "shfe2psInstTable index is :9");
}

TEST_F(SnapshotPriceCheckTest, TheFirstBadRowEndsTheCheck) {
    counts() = {2, 2, 2, 2};
    tables().ine4psInstTable.rows[0] = crossed_row("sc2401");
    tables().shfe2psInstTable.rows[1] = row_outside_limits("cu2401");
    EXPECT_EQ(check(), -2);  // rows are asked number by number, not table by table
    EXPECT_THAT(bad_rows(), ElementsAre("inst_id [sc2401] inst_no[0]"));
    EXPECT_THAT(EngineAccess::price_error_inst_ids(*engine), ElementsAre("sc2401"));
}

TEST_F(SnapshotPriceCheckTest, WithTheShieldBadRowsAreToldAndRememberedAndPass) {
    EngineAccess::config(*engine).shield_price_check = true;
    counts() = {2, 2, 2, 2};
    tables().shfe2psInstTable.rows[0] = crossed_row("a0");
    tables().shfe4psInstTable.rows[0] = row_outside_limits("b0");
    tables().ine2psInstTable.rows[0] = crossed_row("c0");
    tables().ine4psInstTable.rows[0] = crossed_row("d0");
    tables().shfe2psInstTable.rows[1] = crossed_row("a1");
    tables().ine4psInstTable.rows[1] = crossed_row("d1");
    tables().ine2psInstTable.rows[1] = crossed_row("c0");
    EXPECT_EQ(check(), 0);
    EXPECT_THAT(bad_rows(),
                ElementsAre("inst_id [a0] inst_no[0]", "inst_id [b0] inst_no[0]", "inst_id [c0] inst_no[0]",
                            "inst_id [d0] inst_no[0]", "inst_id [a1] inst_no[1]", "inst_id [c0] inst_no[1]",
                            "inst_id [d1] inst_no[1]"));
    EXPECT_THAT(EngineAccess::price_error_inst_ids(*engine), ElementsAre("a0", "a1", "b0", "c0", "d0", "d1"));
}

TEST_F(SnapshotPriceCheckTest, OnlyTheRowsBelowTheCountAreAsked) {
    tables().shfe2psInstTable.rows[2] = crossed_row("a2");
    tables().shfe4psInstTable.rows[0] = crossed_row("b0");
    counts() = {2, 0, 0, 0};
    EXPECT_EQ(check(), 0);
    counts() = {3, 0, 0, 0};
    EXPECT_EQ(check(), -2);
    EXPECT_THAT(bad_rows(), ElementsAre("inst_id [a2] inst_no[2]"));
}

TEST_F(SnapshotPriceCheckTest, TheLastRowsOfTheTablesAreAsked) {
    EngineAccess::config(*engine).shield_price_check = true;
    tables().shfe2psInstTable.rows[16383] = crossed_row("a");
    tables().shfe4psInstTable.rows[16383] = crossed_row("b");
    tables().ine2psInstTable.rows[4095] = crossed_row("c");
    tables().ine4psInstTable.rows[4095] = crossed_row("d");
    counts() = {16384, 16384, 4096, 4096};
    EXPECT_EQ(check(), 0);
    EXPECT_THAT(bad_rows(), ElementsAre("inst_id [c] inst_no[4095]", "inst_id [d] inst_no[4095]",
                                        "inst_id [a] inst_no[16383]", "inst_id [b] inst_no[16383]"));
}

TEST_F(SnapshotPriceCheckTest, ACountBeyondItsTableEndsWithTheTable) {
    EngineAccess::config(*engine).shield_price_check = true;
    tables().shfe4psInstTable.rows[0] = crossed_row("b");  // the first row behind the first table
    tables().ine4psInstTable.rows[0] = crossed_row("d");   // the first row behind the third
    counts() = {20000, 0, 5000, 0};
    EXPECT_EQ(check(), 0);
    EXPECT_THAT(bad_rows(), IsEmpty());
    counts() = {0, 0, 0, 0x7FFFFFFF};
    EXPECT_EQ(check(), 0);
    EXPECT_THAT(bad_rows(), ElementsAre("inst_id [d] inst_no[0]"));
}

TEST_F(SnapshotPriceCheckTest, ACountIsReadAsASignedThirtyTwoBitNumber) {
    tables().shfe2psInstTable.rows[0] = crossed_row("a");
    counts() = {0xFFFFFFFF, 0, 0, 0};
    EXPECT_EQ(check(), 0);
    counts() = {0x100000000, 0, 0, 0};
    EXPECT_EQ(check(), 0);
    counts() = {0x100000001, 0, 0, 0};
    EXPECT_EQ(check(), -2);
}

TEST_F(SnapshotPriceCheckTest, ATasInstrumentPassesWhateverItsPrices) {
    counts() = {1, 0, 0, 0};
    for (const std::string_view inst_id : {"sc2406TAS", "TAS", "xTASx"}) {
        tables().shfe2psInstTable.rows[0] = crossed_row(inst_id);
        EXPECT_EQ(check(), 0) << inst_id;
    }
    EXPECT_THAT(new_log(), IsEmpty());
    EXPECT_TRUE(EngineAccess::price_error_inst_ids(*engine).empty());
    tables().shfe2psInstTable.rows[0] = crossed_row("sc2406tas");
    EXPECT_EQ(check(), -2);
}

TEST_F(SnapshotPriceCheckTest, AnIdentifierWithoutANulEndsWithItsSixteenBytes) {
    counts() = {1, 0, 0, 0};
    SInstTableType& row = tables().shfe2psInstTable.rows[0];
    row = crossed_row("0123456789abcdef");
    row.upper_limit_price = 0x00534154;  // "TAS" behind the identifier
    EXPECT_EQ(check(), -2);
    EXPECT_THAT(bad_rows(), ElementsAre("inst_id [0123456789abcdef] inst_no[0]"));
    EXPECT_THAT(EngineAccess::price_error_inst_ids(*engine), ElementsAre("0123456789abcdef"));
}

TEST_F(SnapshotPriceCheckTest, OneRowIsCheckedByItsNumberInItsTable) {
    std::array<SInstTableType, 3> rows{};
    rows[2] = crossed_row("cu2401");
    EXPECT_EQ(EngineAccess::inst_price_check(*engine, rows.data(), 1), 0);
    EXPECT_EQ(EngineAccess::inst_price_check(*engine, rows.data(), 2), -2);
    EXPECT_THAT(bad_rows(), ElementsAre("inst_id [cu2401] inst_no[2]"));
    EngineAccess::config(*engine).shield_price_check = true;
    EXPECT_EQ(EngineAccess::inst_price_check(*engine, rows.data(), 2), 0);
    EXPECT_THAT(bad_rows(), ElementsAre("inst_id [cu2401] inst_no[2]"));
}

TEST_F(SnapshotPriceCheckTest, DeliberateErrorsComeAfterTheCheck) {
    tables().shfe2psInstTable.rows[0] = good_row("cu2401");
    counts() = {1, 0, 0, 0};
    EngineAccess::config(*engine).debug_flag = true;
    EngineAccess::config(*engine).error_instno = 0;
    EngineAccess::config(*engine).error_case = 0;
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(tables().shfe2psInstTable.rows[0].bid1_price, 100);
    EXPECT_THAT(new_log(), IsEmpty());
}

TEST_F(SnapshotPriceCheckTest, ASnapshotThatIsThrownAwayForgetsItsBadInstruments) {
    tables().shfe2psInstTable.rows[0] = crossed_row("cu2401");
    counts() = {1, 0, 0, 0};
    EXPECT_EQ(check(), -2);
    EngineAccess::clean_data(*engine);
    EXPECT_TRUE(EngineAccess::price_error_inst_ids(*engine).empty());
    EXPECT_EQ(check(), 0);
}

}  // namespace
